#include "ocr.h"

#include <leptonica/allheaders.h>
#include <libheif/heif.h>
#include <tesseract/baseapi.h>
#include <tesseract/ocrclass.h>
#include <tesseract/pageiterator.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <sstream>
#include <vector>

namespace ulvek::plugin::ocr {
namespace {

namespace fs = std::filesystem;

std::string trimmed(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ' || text.back() == '\f'))
    text.pop_back();
  return text;
}

int countWords(const std::string& text) {
  std::istringstream in(text);
  int count = 0;
  for (std::string word; in >> word;) ++count;
  return count;
}

using PixPointer = OwnedPix;

}  // namespace

void PixFree::operator()(Pix* pix) const { pixDestroy(&pix); }

// Text read upright scores far above this; the same page on its side or upside down, below
// 40. Only doubtful readings pay for orientation detection, a fifth of a second a page.
constexpr double kUprightConfidence = 70;
// The orientation model's confidence below which a page is left as it stands.
constexpr float kLeastTurnConfidence = 7;

// Leptonica's count of ascenders against descenders tells which way lines of Latin text run.
// Measured on pages at 150 to 300 dpi, its confidence along the lines is 9 to 52, across them 1
// to 6, and nothing for a photo or a label; but a typewriter page's is 10 along against 9 across.
// A page is taken to lie one way when its count that way is at least this and this many times
// the count across.
constexpr float kLeastSightConfidence = 8;
constexpr float kLeastSightRatio = 3;
// The counts are made for 150 to 300 dpi; finer pages are halved first.
constexpr int kFinestSightDpi = 400;
// Whether a page is upright is plainer at half of 300 dpi, for a quarter of the cost: there
// upright pages count 8.5 to 17 as they stand, and pages on their side at most 5 (the typewriter
// page 2).
constexpr int kCoarsestSightDpi = 150;

std::optional<int> turnsBySight(Pix* page, int dpi) {
  if (!page) return std::nullopt;
  PixPointer binary(pixConvertTo1(page, 128));
  for (; binary && dpi > kFinestSightDpi; dpi /= 2)
    binary.reset(pixReduceRankBinary2(binary.get(), 1, nullptr));
  if (!binary) return std::nullopt;
  l_float32 up = 0, left = 0;
  if (dpi >= 2 * kCoarsestSightDpi) {
    PixPointer half(pixReduceRankBinary2(binary.get(), 1, nullptr));
    if (half && pixUpDownDetect(half.get(), &up, 0, 0, 0) == 0 && up >= kLeastSightConfidence)
      return 0;
  }
  if (pixUpDownDetect(binary.get(), &up, 0, 0, 0) != 0) return std::nullopt;
  // Turned a quarter clockwise, lines whose tops were to the left have them up.
  PixPointer quarter(pixRotate90(binary.get(), 1));
  if (!quarter || pixUpDownDetect(quarter.get(), &left, 0, 0, 0) != 0) return std::nullopt;
  // Too few letters to count either way.
  if (up == 0 || left == 0) return std::nullopt;
  l_int32 orientation = L_TEXT_ORIENT_UNKNOWN;
  makeOrientDecision(up, left, kLeastSightConfidence, kLeastSightRatio, &orientation, 0);
  switch (orientation) {
    case L_TEXT_ORIENT_UP:
      return 0;
    case L_TEXT_ORIENT_LEFT:
      return 1;
    case L_TEXT_ORIENT_DOWN:
      return 2;
    case L_TEXT_ORIENT_RIGHT:
      return 3;
    default:
      return std::nullopt;
  }
}

struct Engine::Api {
  tesseract::TessBaseAPI tesseract;
  // Orientation and script detection, loaded when a page first reads doubtfully.
  tesseract::TessBaseAPI orientation;
  enum class Model { Unloaded, Loaded, Missing } orientationModel = Model::Unloaded;
};

std::unique_ptr<Engine> Engine::load(const std::string& languages) {
  std::unique_ptr<Engine> engine(new Engine());
  engine->api_ = new Api();
  tesseract::TessBaseAPI& api = engine->api_->tesseract;
  // Tesseract's complaints about single pages are no news to the host's log.
  api.SetVariable("debug_file", "/dev/null");
  if (api.Init(nullptr, languages.c_str(), tesseract::OEM_LSTM_ONLY) != 0) {
    std::fprintf(stderr, "OCR: no model for %s in %s\n", languages.c_str(), modelFolder().c_str());
    return nullptr;
  }
  api.SetVariable("debug_file", "/dev/null");
  api.SetPageSegMode(tesseract::PSM_AUTO);
  engine->languages_ = languages;
  return engine;
}

namespace {

// The process's engines, all for the same languages: the first one forLanguages answers.
struct Engines {
  std::vector<std::unique_ptr<Engine>> loaded;
  std::string languages;
  std::string failed;
};

Engines& engines() {
  static Engines kept;
  return kept;
}

}  // namespace

Engine* Engine::forLanguages(const std::string& languages) {
  std::vector<Engine*> one = several(languages, 1);
  return one.empty() ? nullptr : one.front();
}

std::vector<Engine*> Engine::several(const std::string& languages, unsigned count) {
  Engines& kept = engines();
  if (kept.languages != languages) {
    kept.loaded.clear();
    kept.languages = languages;
  }
  if (kept.failed == languages) return {};
  while (kept.loaded.size() < count) {
    std::unique_ptr<Engine> engine = load(languages);
    if (!engine) {
      if (kept.loaded.empty()) kept.failed = languages;
      break;
    }
    kept.loaded.push_back(std::move(engine));
  }
  std::vector<Engine*> answer;
  for (std::size_t i = 0; i < kept.loaded.size() && i < count; ++i)
    answer.push_back(kept.loaded[i].get());
  return answer;
}

Engine::~Engine() {
  if (api_) {
    api_->tesseract.End();
    api_->orientation.End();
  }
  delete api_;
}

Reading Engine::read(const unsigned char* pixels, int width, int height, int stride, int dpi,
                     std::optional<Clock::time_point> deadline) {
  api_->tesseract.SetImage(pixels, width, height, 1, stride);
  api_->tesseract.SetSourceResolution(dpi);
  return recognize(deadline);
}

Reading Engine::read(Pix* picture, std::optional<Clock::time_point> deadline) {
  api_->tesseract.SetImage(picture);
  // Pictures often say nothing of their resolution; a page photographed or scanned whole is
  // about 300 dpi.
  int dpi = pixGetXRes(picture);
  api_->tesseract.SetSourceResolution(dpi >= 70 && dpi <= 1200 ? dpi : 300);
  return recognize(deadline);
}

Reading Engine::recognize(std::optional<Clock::time_point> deadline) {
  passes_ = 0;
  Reading reading = recognizeUpright(deadline);
  reading.passes = passes_;
  return reading;
}

Reading Engine::recognizeUpright(std::optional<Clock::time_point> deadline) {
  tesseract::TessBaseAPI& api = api_->tesseract;
  Pix* input = api.GetInputImage();
  PixPointer page(input ? pixClone(input) : nullptr);
  const int dpi = api.GetSourceYResolution();
  // Turned upright and read anew; nothing when the page cannot be turned.
  auto readTurned = [&](int turns) -> std::optional<Reading> {
    PixPointer upright(pixRotateOrth(page.get(), turns));
    if (!upright) return std::nullopt;
    api.SetImage(upright.get());
    api.SetSourceResolution(dpi);
    Reading reading = recognizeOnce(deadline);
    api.Clear();
    return reading;
  };
  auto sure = [](const Reading& reading) {
    return reading.confidence >= kUprightConfidence && reading.words >= kMinimumWords;
  };
  // Most pages on their side or upside down are seen so at a glance, before a reading of the
  // page as it stands that would be junk.
  const std::optional<int> seen = page ? turnsBySight(page.get(), dpi) : std::nullopt;
  std::optional<Reading> turned;
  if (seen > 0) {
    turned = readTurned(*seen);
    if (turned && (turned->timedOut || sure(*turned))) {
      turnedLast_ = true;
      return *turned;
    }
  } else if (seen == 0) {
    turnedLast_ = false;
  } else if (turnedLast_ && page) {
    // Not seen: the pages of a scan mostly lie alike, so after a turned page the orientation
    // model is asked first.
    if (int turns = uprightTurns(page.get()); turns > 0) {
      if (std::optional<Reading> reading = readTurned(turns)) return *reading;
    }
    // Upright after all: the page is still set as it stands.
    turnedLast_ = false;
  }
  Reading reading = recognizeOnce(deadline);
  api.Clear();
  if (reading.timedOut || !page || sure(reading)) return reading;
  // A page on its side or upside down reads as junk: turned upright by the model, it reads
  // anew, unless that is how it was seen and read already.
  const int turns = uprightTurns(page.get());
  std::optional<Reading> again = turns == 0      ? std::nullopt
                                 : seen == turns ? turned
                                                 : readTurned(turns);
  if (again && again->timedOut) return *again;
  for (const std::optional<Reading>& other : {turned, again}) {
    if (!other || other->confidence <= reading.confidence) continue;
    reading = *other;
    turnedLast_ = true;
  }
  return reading;
}

Reading Engine::recognizeOnce(std::optional<Clock::time_point> deadline) {
  tesseract::TessBaseAPI& api = api_->tesseract;
  Reading reading;
  tesseract::ETEXT_DESC monitor;
  if (deadline) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - Clock::now());
    if (left.count() <= 0) {
      reading.timedOut = true;
      return reading;
    }
    monitor.set_deadline_msecs(static_cast<int>(std::min<long long>(left.count(), 1 << 30)));
  }
  ++passes_;
  if (api.Recognize(&monitor) != 0 || (deadline && Clock::now() >= *deadline)) {
    reading.timedOut = deadline && Clock::now() >= *deadline;
    return reading;
  }
  std::unique_ptr<char[]> text(api.GetUTF8Text());
  if (text) reading.text = trimmed(text.get());
  reading.words = countWords(reading.text);
  reading.confidence = api.MeanTextConf();
  return reading;
}

int Engine::uprightTurns(Pix* picture) {
  using Model = Api::Model;
  tesseract::TessBaseAPI& orientation = api_->orientation;
  if (api_->orientationModel == Model::Unloaded) {
    // Without the model pages are read as they stand.
    bool loaded = fs::exists(modelFolder() + "/" + kOrientationModel + ".traineddata") &&
                  orientation.Init(nullptr, kOrientationModel, tesseract::OEM_TESSERACT_ONLY) == 0;
    if (loaded) orientation.SetPageSegMode(tesseract::PSM_OSD_ONLY);
    api_->orientationModel = loaded ? Model::Loaded : Model::Missing;
  }
  if (api_->orientationModel != Model::Loaded) return 0;
  orientation.SetImage(picture);
  int dpi = pixGetXRes(picture);
  orientation.SetSourceResolution(dpi >= 70 && dpi <= 1200 ? dpi : 300);
  int degrees = 0;
  float confidence = 0, scriptConfidence = 0;
  const char* script = nullptr;
  bool found =
      orientation.DetectOrientationScript(&degrees, &confidence, &script, &scriptConfidence);
  orientation.Clear();
  if (!found || confidence < kLeastTurnConfidence) return 0;
  // The model says how far the page was turned clockwise; turning on to a whole turn undoes it.
  return ((360 - degrees) / 90) % 4;
}

namespace {

bool isTiff(int format) {
  return format == IFF_TIFF || format == IFF_TIFF_G4 || format == IFF_TIFF_LZW ||
         format == IFF_TIFF_ZIP || format == IFF_TIFF_PACKBITS || format == IFF_TIFF_RLE ||
         format == IFF_TIFF_G3 || format == IFF_TIFF_JPEG;
}

// The declared size of a picture file's page, before any of it is decoded.
bool readSize(const std::string& path, int format, int page, l_int32& width, l_int32& height) {
  l_int32 bits = 0, samples = 0;
  if (!isTiff(format))
    return pixReadHeader(path.c_str(), nullptr, &width, &height, &bits, &samples, nullptr) == 0;
  return readHeaderTiff(path.c_str(), page, &width, &height, &bits, &samples, nullptr, nullptr,
                        nullptr) == 0;
}

bool tooBig(const std::string& path, long long width, long long height) {
  if (width * height <= kMostPixels) return false;
  std::fprintf(stderr, "OCR: %s: %lld x %lld pixels is too big to read\n", path.c_str(), width,
               height);
  return true;
}

// A decoded picture at most kReadPixels big.
PixPointer forReading(PixPointer pix) {
  if (!pix) return nullptr;
  long long pixels = static_cast<long long>(pixGetWidth(pix.get())) * pixGetHeight(pix.get());
  if (pixels > kReadPixels) {
    float scale = static_cast<float>(std::sqrt(double(kReadPixels) / double(pixels)));
    PixPointer grey(pixConvertTo8(pix.get(), 0));
    if (!grey) return nullptr;
    pix.reset(pixScaleGrayLI(grey.get(), scale, scale));
  }
  return pix;
}

// A page of a picture file, decoded when its declared size is sane and scaled down to what is
// worth reading.
PixPointer decodePage(const std::string& path, int format, int page) {
  l_int32 width = 0, height = 0;
  if (!readSize(path, format, page, width, height) || width <= 0 || height <= 0) return nullptr;
  if (tooBig(path, width, height)) return nullptr;
  return forReading(
      PixPointer(isTiff(format) ? pixReadTiff(path.c_str(), page) : pixRead(path.c_str())));
}

// Leptonica knows no HEIF; its files begin with a box of brands that libheif tells apart from
// other ISO media files (videos, raw camera files).
bool isHeif(const std::string& path) {
  unsigned char start[64];
  FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return false;
  std::size_t got = std::fread(start, 1, sizeof start, file);
  std::fclose(file);
  return got >= 12 && heif_check_filetype(start, static_cast<int>(got)) != heif_filetype_no;
}

struct HeifFree {
  void operator()(heif_context* context) const { heif_context_free(context); }
  void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
  void operator()(heif_image* image) const { heif_image_release(image); }
  void operator()(heif_decoding_options* options) const { heif_decoding_options_free(options); }
};
template <typename T>
using HeifPointer = std::unique_ptr<T, HeifFree>;

}  // namespace

OwnedPix decodeHeif(const std::string& path) {
  auto damaged = [&](const heif_error& error) {
    // Some of libheif's messages end in a line feed of their own.
    std::fprintf(stderr, "OCR: %s: damaged HEIF picture: %s\n", path.c_str(),
                 trimmed(error.message).c_str());
    return nullptr;
  };
  HeifPointer<heif_context> context(heif_context_alloc());
  if (!context) return nullptr;
  heif_error error = heif_context_read_from_file(context.get(), path.c_str(), nullptr);
  if (error.code != heif_error_Ok) return damaged(error);
  heif_image_handle* primary = nullptr;
  error = heif_context_get_primary_image_handle(context.get(), &primary);
  HeifPointer<heif_image_handle> handle(primary);
  if (error.code != heif_error_Ok) return damaged(error);
  // The size the file declares, before its transforms: nothing is decoded yet.
  if (tooBig(path, heif_image_handle_get_ispe_width(handle.get()),
             heif_image_handle_get_ispe_height(handle.get())))
    return nullptr;
  // As coded, with no colour conversion: libheif has none from a phone's YCbCr to grey, and
  // luma is the grey already. RGB (coded so where lossless) weighs its planes.
  heif_image* decoded = nullptr;
  error = heif_decode_image(handle.get(), &decoded, heif_colorspace_undefined,
                            heif_chroma_undefined, nullptr);
  HeifPointer<heif_image> image(decoded);
  if (error.code != heif_error_Ok) return damaged(error);
  struct Plane {
    const std::uint8_t* data = nullptr;
    int stride = 0;
    int depth = 0;
    int weight = 0;  // of 256
  };
  std::vector<Plane> planes;
  heif_colorspace colours = heif_image_get_colorspace(image.get());
  if (colours == heif_colorspace_YCbCr || colours == heif_colorspace_monochrome) {
    planes.push_back({nullptr, 0, 0, 256});
  } else if (colours == heif_colorspace_RGB &&
             heif_image_get_chroma_format(image.get()) == heif_chroma_444) {
    planes = {{nullptr, 0, 0, 77}, {nullptr, 0, 0, 150}, {nullptr, 0, 0, 29}};
  }
  const heif_channel channels[] = {planes.size() == 1 ? heif_channel_Y : heif_channel_R,
                                   heif_channel_G, heif_channel_B};
  int width = heif_image_get_width(image.get(), channels[0]);
  int height = heif_image_get_height(image.get(), channels[0]);
  // A grid's canvas can be far larger than the size its item declares.
  if (tooBig(path, width, height)) return nullptr;
  for (std::size_t i = 0; i < planes.size(); ++i) {
    Plane& plane = planes[i];
    plane.data = heif_image_get_plane_readonly(image.get(), channels[i], &plane.stride);
    // Deeper samples than 8 bits take two bytes each.
    plane.depth = heif_image_get_bits_per_pixel_range(image.get(), channels[i]);
    if (!plane.data || plane.depth < 8 || plane.depth > 16 ||
        heif_image_get_width(image.get(), channels[i]) != width ||
        heif_image_get_height(image.get(), channels[i]) != height)
      planes.clear();
  }
  if (planes.empty() || width <= 0 || height <= 0) {
    std::fprintf(stderr, "OCR: %s: HEIF picture of colours not read\n", path.c_str());
    return nullptr;
  }
  PixPointer pix(pixCreate(width, height, 8));
  if (!pix) return nullptr;
  l_uint32* rows = pixGetData(pix.get());
  int words = pixGetWpl(pix.get());
  for (int y = 0; y < height; ++y) {
    l_uint32* row = rows + static_cast<std::size_t>(y) * words;
    for (int x = 0; x < width; ++x) {
      int grey = 0;
      for (const Plane& plane : planes) {
        const std::uint8_t* from = plane.data + static_cast<std::size_t>(y) * plane.stride;
        int sample =
            plane.depth == 8 ? from[x] : (from[2 * x] | from[2 * x + 1] << 8) >> (plane.depth - 8);
        grey += plane.weight * std::min(sample, 255);
      }
      SET_DATA_BYTE(row, x, grey >> 8);
    }
  }
  return forReading(std::move(pix));
}

namespace {

// The pages of a picture file: a TIFF's, or the one picture of any other.
int pageCount(const std::string& path, int format) {
  if (!isTiff(format)) return 1;
  FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) return 0;
  l_int32 count = 0;
  if (tiffGetCount(file, &count) != 0) count = 0;
  std::fclose(file);
  return count;
}

}  // namespace

// Pictures above this many pixels are halved before their layout is analysed.
constexpr long long kHalvedForLayout = 4'000'000;

bool showsText(Pix* picture) {
  struct Layout {
    Layout() {
      api.SetVariable("debug_file", "/dev/null");
      api.InitForAnalysePage();
      api.SetPageSegMode(tesseract::PSM_AUTO);
    }
    std::mutex mutex;
    tesseract::TessBaseAPI api;
  };
  static Layout layout;
  int dpi = pixGetXRes(picture);
  if (dpi < 70 || dpi > 1200) dpi = 300;
  // Blocks of text are as plain in a big picture halved, at a quarter of the cost: a letter page
  // at 300 dpi, or a phone's photo of one, is looked at in 0.1 s instead of 0.5.
  OwnedPix halved;
  if (static_cast<long long>(pixGetWidth(picture)) * pixGetHeight(picture) > kHalvedForLayout) {
    halved.reset(pixScale(picture, 0.5, 0.5));
    if (halved) {
      picture = halved.get();
      dpi /= 2;
    }
  }
  std::lock_guard lock(layout.mutex);
  layout.api.SetImage(picture);
  layout.api.SetSourceResolution(dpi);
  bool text = false;
  if (std::unique_ptr<tesseract::PageIterator> blocks(layout.api.AnalyseLayout()); blocks) {
    do {
      text = PTIsTextType(blocks->BlockType());
    } while (!text && blocks->Next(tesseract::RIL_BLOCK));
  }
  layout.api.Clear();
  return text;
}

PictureText readPicture(const std::string& path, const Settings& settings,
                        std::optional<Clock::time_point> deadline) {
  PictureText result;
  // Leptonica's own complaints name no file; the host hears ours instead.
  setMsgSeverity(L_SEVERITY_NONE);
  const bool heif = isHeif(path);
  l_int32 format = IFF_UNKNOWN;
  if (!heif && (findFileFormat(path.c_str(), &format) != 0 || format == IFF_UNKNOWN)) return result;
  int pages = heif ? 1 : pageCount(path, format);
  Engine* engine = nullptr;
  for (int page = 0; page < pages; ++page) {
    PixPointer pix = heif ? decodeHeif(path) : decodePage(path, format, page);
    if (!pix) break;
    result.decoded = true;
    if (!showsText(pix.get())) continue;
    if (!engine)
      engine = Engine::forLanguages(settings.languages.empty() ? defaultLanguages()
                                                               : settings.languages);
    if (!engine) break;
    Reading reading = engine->read(pix.get(), deadline);
    if (reading.timedOut) {
      std::fprintf(stderr, "OCR: time limit reached after %d of %d pages of %s\n", page, pages,
                   path.c_str());
      break;
    }
    ++result.pages;
    if (reading.words < kMinimumWords || reading.confidence < kMinimumConfidence) continue;
    result.text += reading.text;
    result.text += '\n';
  }
  if (engine && result.pages > 0) logReading(path, result.pages, engine->languages());
  return result;
}

}  // namespace ulvek::plugin::ocr
