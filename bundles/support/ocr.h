#pragma once

// Text of pictures of text, read with Tesseract, for the importers of scans (PDF) and pictures
// (Image). A worker loads a language's model once and reuses it for every page and file it is
// given; the pages of one scan are shared out to an engine a thread, never to Tesseract's own
// threads.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "importer_plugin.h"

struct Pix;

namespace ulvek::plugin::ocr {

using Clock = std::chrono::steady_clock;

// What the host asks of OCR for one import.
struct Settings {
  bool enabled = true;
  std::string languages;  // "deu+eng"; empty: defaultLanguages()
  int resolution = 300;   // dots per inch of a rendered PDF page
  std::chrono::duration<double> timeLimit{60};
};

// From the host's settings (DisableOCR, OCRLanguages, OCRResolution, OCRTimeLimit); what it
// leaves out keeps its default.
Settings settingsOf(const Attributes& attributes);

// The folder Tesseract reads its models from: $TESSDATA_PREFIX, else Debian's.
std::string modelFolder();
// Tesseract's model of which way pages lie, in that folder beside the languages'.
inline constexpr const char* kOrientationModel = "osd";
// The languages with a model in `folder` ("eng", "deu", ...), sorted; "osd" is not one.
std::vector<std::string> installedLanguages(const std::string& folder);
// The installed language of `locale` ("de_DE.UTF-8") and English, "deu+eng"; "eng" when the
// locale's language has no model or is English.
std::string languagesForLocale(const std::string& locale,
                               const std::vector<std::string>& installed);
// languagesForLocale of this process's locale (LC_ALL, LC_MESSAGES, LANG) and installed models.
std::string defaultLanguages();

// Clockwise quarter turns that make `picture`, scanned at `dpi`, upright, by Leptonica's count
// of the ascenders and descenders of its lines: a few hundredths of a second a page, against
// seconds for reading it. Nothing when the count is not plain, as for pictures of little or no
// Latin text.
std::optional<int> turnsBySight(Pix* picture, int dpi);

// Whether Tesseract's layout analysis, which needs no model, finds a block of text in `picture`
// (of any depth). Photos show none, and so are never read: a worker given only photos loads no
// model. A tenth of a second for a big picture, against half a second for loading a model and
// more for reading.
bool showsText(Pix* picture);

struct Reading {
  std::string text;       // without trailing line ends
  int words = 0;          // words Tesseract found
  double confidence = 0;  // their mean confidence, 0 to 100
  bool timedOut = false;  // stopped at the deadline; the text is then empty
  int passes = 0;         // times Tesseract read the page: more than one when turned after a pass
};

// An engine with a language's models loaded. One engine is for one thread at a time.
class Engine {
 public:
  // The process's engine with the models of `languages` loaded (loaded on first use, or again
  // when the languages change); nothing when a model is missing, with one line on standard
  // error.
  static Engine* forLanguages(const std::string& languages);
  // Up to `count` engines for `languages`, the first being forLanguages' own; the others are
  // kept too, so a worker loads each model once however many scans it reads. Fewer when a model
  // is missing (none at all then).
  static std::vector<Engine*> several(const std::string& languages, unsigned count);

  // Text of a greyscale picture (one byte a pixel, rows `stride` bytes apart) scanned at `dpi`,
  // turned upright first when it does not read as upright text; reading stops at `deadline`.
  Reading read(const unsigned char* pixels, int width, int height, int stride, int dpi,
               std::optional<Clock::time_point> deadline);
  // The same for a picture Leptonica decoded, of any depth.
  Reading read(Pix* picture, std::optional<Clock::time_point> deadline);

  const std::string& languages() const { return languages_; }
  ~Engine();

 private:
  Engine() = default;
  static std::unique_ptr<Engine> load(const std::string& languages);
  Reading recognize(std::optional<Clock::time_point> deadline);
  Reading recognizeUpright(std::optional<Clock::time_point> deadline);
  Reading recognizeOnce(std::optional<Clock::time_point> deadline);
  // Clockwise quarter turns that make the picture set upright, by the orientation model: 0
  // when it is upright, or the model is missing or unsure.
  int uprightTurns(Pix* picture);

  struct Api;
  Api* api_ = nullptr;
  std::string languages_;
  // The last page read had to be turned upright: a page whose lines are not plain to see is
  // then asked of the orientation model first.
  bool turnedLast_ = false;
  int passes_ = 0;  // of the page being read
};

// Pictures bigger than this are not decoded: a declared size that no scan has is a decompression
// bomb more likely than a page.
inline constexpr long long kMostPixels = 100'000'000;
// Pictures are read at most this big; larger ones are scaled down first (a phone's 50 megapixel
// photo of a page reads as well, in a fraction of the time).
inline constexpr long long kReadPixels = 24'000'000;

// A HEIF or AVIF file's primary picture in grey, turned and mirrored as it is shown and scaled
// down to kReadPixels; nothing when its declared size is over kMostPixels or the file is damaged,
// with one line on standard error.
struct PixFree {
  void operator()(Pix* pix) const;
};
using OwnedPix = std::unique_ptr<Pix, PixFree>;
OwnedPix decodeHeif(const std::string& path);

// A picture file's text: every page of a TIFF, the one picture of a PNG, JPEG, WebP, GIF, BMP,
// HEIF or AVIF.
// Pages whose words are fewer than `minimumWords` or whose mean confidence is below
// `minimumConfidence` give nothing: photos of landscapes give no junk.
struct PictureText {
  std::string text;  // pages in order, each ending in a line feed
  int pages = 0;     // pages read
  bool decoded = false;
};
inline constexpr int kMinimumWords = 3;
inline constexpr double kMinimumConfidence = 60;
PictureText readPicture(const std::string& path, const Settings& settings,
                        std::optional<Clock::time_point> deadline);

// "OCR: PATH (N pages, language L)" on standard error, which the host logs.
void logReading(const std::string& path, int pages, const std::string& languages);

}  // namespace ulvek::plugin::ocr
