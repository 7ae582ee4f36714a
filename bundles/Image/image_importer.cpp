// Image.mdimporter: EXIF, IPTC and XMP of JPEG, PNG, TIFF, WebP, HEIF and raw camera files,
// read with Exiv2, and a PNG file's own text chunks with libpng. Where they disagree, the
// Metadata Working Group's rules decide: EXIF first for the fields it has, then XMP, unless the
// IPTC digest shows the IPTC was changed after it; the PNG chunks last. Pictures of text (JPEG,
// PNG, every page of a TIFF, WebP, GIF, BMP, HEIF, AVIF) answer the text Tesseract reads in
// them, when it is sure enough of it.

#include <exiv2/exiv2.hpp>

#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "importer_plugin.h"
#include "iptc_digest.h"
#include "ocr_module.h"
#include "png_text.h"

namespace {

using ulvek::plugin::Attributes;

std::optional<std::string> xmpText(const Exiv2::XmpData& xmp, const char* key) {
  auto found = xmp.findKey(Exiv2::XmpKey(key));
  if (found == xmp.end()) return std::nullopt;
  // Language alternatives print as 'lang="x-default" text'; the value without the qualifier.
  if (found->typeId() == Exiv2::langAlt) {
    const auto& alt = dynamic_cast<const Exiv2::LangAltValue&>(found->value());
    auto def = alt.value_.find("x-default");
    if (def != alt.value_.end()) return def->second;
    if (!alt.value_.empty()) return alt.value_.begin()->second;
    return std::nullopt;
  }
  std::string text = found->toString();
  if (text.empty()) return std::nullopt;
  return text;
}

std::vector<std::string> xmpList(const Exiv2::XmpData& xmp, const char* key) {
  std::vector<std::string> items;
  auto found = xmp.findKey(Exiv2::XmpKey(key));
  if (found == xmp.end()) return items;
  for (long i = 0; i < found->count(); ++i) items.push_back(found->toString(i));
  return items;
}

std::optional<std::string> iptcText(const Exiv2::IptcData& iptc, const char* key) {
  auto found = iptc.findKey(Exiv2::IptcKey(key));
  if (found == iptc.end()) return std::nullopt;
  std::string text = found->toString();
  if (text.empty()) return std::nullopt;
  return text;
}

std::vector<std::string> iptcList(const Exiv2::IptcData& iptc, const char* key) {
  std::vector<std::string> items;
  for (const auto& datum : iptc)
    if (datum.key() == key) items.push_back(datum.toString());
  return items;
}

// IPTC's creation date and time ("2021-06-01", "10:00:00+02:00") as one date.
std::optional<std::string> iptcDateTime(const Exiv2::IptcData& iptc) {
  std::optional<std::string> date = iptcText(iptc, "Iptc.Application2.DateCreated");
  if (!date) return std::nullopt;
  std::optional<std::string> time = iptcText(iptc, "Iptc.Application2.TimeCreated");
  return time ? *date + "T" + *time : *date;
}

std::optional<std::string> exifText(const Exiv2::ExifData& exif, const char* key) {
  auto found = exif.findKey(Exiv2::ExifKey(key));
  if (found == exif.end()) return std::nullopt;
  // Windows' XP tags are UCS-2 in bytes, which only their printed form decodes.
  std::string text = found->tagName().starts_with("XP") ? found->print(&exif) : found->toString();
  // EXIF strings are fixed-size and padded with blanks or NULs.
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
  if (text.empty()) return std::nullopt;
  return text;
}

std::optional<double> exifNumber(const Exiv2::ExifData& exif, const char* key) {
  auto found = exif.findKey(Exiv2::ExifKey(key));
  if (found == exif.end() || found->count() == 0) return std::nullopt;
  Exiv2::Rational value = found->toRational(0);
  if (value.second == 0) return std::nullopt;
  return double(value.first) / double(value.second);
}

// EXIF's user comment, without its character-set prefix.
std::optional<std::string> exifUserComment(const Exiv2::ExifData& exif) {
  auto found = exif.findKey(Exiv2::ExifKey("Exif.Photo.UserComment"));
  if (found == exif.end()) return std::nullopt;
  const auto* comment = dynamic_cast<const Exiv2::CommentValue*>(&found->value());
  std::string text = comment ? comment->comment() : found->toString();
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
  if (text.empty()) return std::nullopt;
  return text;
}

std::optional<std::string> chunk(const std::map<std::string, std::string>& chunks,
                                 const char* keyword) {
  auto found = chunks.find(keyword);
  if (found == chunks.end()) return std::nullopt;
  return found->second;
}

template <typename... Candidates>
std::optional<std::string> first(Candidates... candidates) {
  std::optional<std::string> found;
  ((found ? void() : void(found = candidates)), ...);
  return found;
}

using ulvek::image::IptcState;

// XMP speaks for a field IPTC also holds, unless the IPTC changed after it. IPTC keeps only so
// many characters; a cut IPTC value that begins the XMP one gives way to the whole.
std::optional<std::string> reconciled(IptcState state, std::optional<std::string> xmp,
                                      std::optional<std::string> iptc, std::size_t iptcLimit) {
  if (xmp && state != IptcState::ChangedAfterXmp) return xmp;
  if (!iptc) return xmp;
  if (xmp && iptc->size() == iptcLimit && xmp->size() > iptcLimit && xmp->starts_with(*iptc))
    return xmp;
  return iptc;
}

std::vector<std::string> reconciled(IptcState state, std::vector<std::string> xmp,
                                    std::vector<std::string> iptc) {
  if (!xmp.empty() && state != IptcState::ChangedAfterXmp) return xmp;
  return iptc.empty() ? xmp : iptc;
}

// EXIF's Artist holds several names as "A; B".
std::vector<std::string> artists(const std::string& artist) {
  std::vector<std::string> names;
  std::size_t at = 0;
  while (at <= artist.size()) {
    std::size_t end = artist.find(';', at);
    if (end == std::string::npos) end = artist.size();
    std::string name = artist.substr(at, end - at);
    name.erase(0, name.find_first_not_of(' '));
    name.erase(name.find_last_not_of(' ') + 1);
    if (!name.empty()) names.push_back(name);
    at = end + 1;
  }
  return names;
}

// "2003:12:14 12:01:44" (EXIF) or "2003-12-14T12:01:44+01:00" (XMP), with an optional offset.
std::optional<double> parseDate(const std::string& text, const std::optional<std::string>& offset) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0;
  double second = 0;
  char rest[16] = {};
  int fields = std::sscanf(text.c_str(), "%d%*[-:]%d%*[-:]%d%*[ T]%d:%d:%lf%15s", &year, &month,
                           &day, &hour, &minute, &second, rest);
  if (fields < 3) return std::nullopt;
  std::string zone = fields >= 7 ? rest : offset.value_or("");
  int offsetSeconds = 0;
  int zoneHours = 0, zoneMinutes = 0;
  if (!zone.empty() && (zone[0] == '+' || zone[0] == '-') &&
      std::sscanf(zone.c_str() + 1, "%d:%d", &zoneHours, &zoneMinutes) >= 1) {
    offsetSeconds = (zoneHours * 3600 + zoneMinutes * 60) * (zone[0] == '-' ? -1 : 1);
  }
  return ulvek::plugin::secondsSince1970(year, month, day, hour, minute, second, offsetSeconds);
}

// Degrees from the EXIF triple of rationals and its reference letter.
std::optional<double> gpsCoordinate(const Exiv2::ExifData& exif, const char* key,
                                    const char* referenceKey) {
  auto found = exif.findKey(Exiv2::ExifKey(key));
  if (found == exif.end() || found->count() < 3) return std::nullopt;
  double degrees = 0;
  double scale = 1;
  for (long i = 0; i < 3; ++i) {
    Exiv2::Rational part = found->toRational(i);
    if (part.second == 0) return std::nullopt;
    degrees += double(part.first) / double(part.second) / scale;
    scale *= 60;
  }
  std::optional<std::string> reference = exifText(exif, referenceKey);
  if (reference && (*reference == "S" || *reference == "W")) degrees = -degrees;
  if (!std::isfinite(degrees)) return std::nullopt;
  return degrees;
}

// The kinds Leptonica or libheif decode; raw camera files hold photographs, not pages.
bool readableForText(const std::string& contentType) {
  for (const char* type :
       {"public.jpeg", "public.png", "public.tiff", "org.webmproject.webp", "com.compuserve.gif",
        "com.microsoft.bmp", "public.heic", "public.heif-standard", "public.avif"})
    if (contentType == type) return true;
  return false;
}

// What is left of the host's time, less a share for sending the answer, and at most the OCR
// budget.
std::optional<ulvek::plugin::ocr::Clock::time_point> readingDeadline(
    const Attributes& out, const ulvek::plugin::ocr::Settings& settings) {
  using Clock = ulvek::plugin::ocr::Clock;
  auto budget = settings.timeLimit;
  if (auto left = out.timeLeft()) budget = std::min(budget, *left * 0.9);
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(budget);
}

void readText(Attributes& out, const std::string& contentType, const char* path) {
  namespace ocr = ulvek::plugin::ocr;
  ocr::Settings settings = ocr::settingsOf(out);
  if (!settings.enabled || !readableForText(contentType)) return;
  const ocr::Module* engine = ocr::module();
  if (!engine) return;
  ocr::PictureText text = engine->readPicture(path, settings, readingDeadline(out, settings));
  if (text.text.empty()) return;
  out.string("kMDItemTextContent", text.text);
  out.string(ulvek::plugin::kTextSource, "ocr");
}

bool importImage(Attributes& out, const char* contentType, const char* path) {
  Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
  // HEIF, AVIF and CR3 are off until asked for.
  Exiv2::enableBMFF(true);
  Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(path);
  if (!image.get()) return false;
  image->readMetadata();
  const Exiv2::ExifData& exif = image->exifData();
  const Exiv2::IptcData& iptc = image->iptcData();
  const Exiv2::XmpData& xmp = image->xmpData();
  // Only a PNG file is opened a second time, for the chunks Exiv2 leaves unread.
  const std::map<std::string, std::string> png = image->imageType() == Exiv2::ImageType::png
                                                     ? ulvek::image::pngTextChunks(path)
                                                     : std::map<std::string, std::string>();

  // The digest decides only between an IPTC and an XMP block; the file is read again for it
  // only when it holds both.
  const IptcState iptcNow =
      iptc.empty() || xmp.empty() ? IptcState::Synchronised : ulvek::image::iptcState(path, *image);

  // The title is no field of the guidelines: XMP, then IPTC, as the other fields read.
  if (auto title = first(reconciled(iptcNow, xmpText(xmp, "Xmp.dc.title"),
                                    iptcText(iptc, "Iptc.Application2.ObjectName"), 64),
                         exifText(exif, "Exif.Image.XPTitle"), chunk(png, "Title")))
    out.string("kMDItemTitle", *title);
  // The user comment is the photographer's own caption where no other is given.
  if (auto description = first(exifText(exif, "Exif.Image.ImageDescription"),
                               reconciled(iptcNow, xmpText(xmp, "Xmp.dc.description"),
                                          iptcText(iptc, "Iptc.Application2.Caption"), 2000),
                               chunk(png, "Description"), exifUserComment(exif)))
    out.string("kMDItemDescription", *description);
  if (auto comment = chunk(png, "Comment")) out.string("kMDItemComment", *comment);
  out.strings("kMDItemKeywords", reconciled(iptcNow, xmpList(xmp, "Xmp.dc.subject"),
                                            iptcList(iptc, "Iptc.Application2.Keywords")));
  std::vector<std::string> authors;
  if (auto artist = exifText(exif, "Exif.Image.Artist")) authors = artists(*artist);
  if (authors.empty())
    authors = reconciled(iptcNow, xmpList(xmp, "Xmp.dc.creator"),
                         iptcList(iptc, "Iptc.Application2.Byline"));
  if (authors.empty()) {
    if (auto author = chunk(png, "Author")) authors.push_back(*author);
  }
  out.strings("kMDItemAuthors", authors);
  if (auto copyright = first(exifText(exif, "Exif.Image.Copyright"),
                             reconciled(iptcNow, xmpText(xmp, "Xmp.dc.rights"),
                                        iptcText(iptc, "Iptc.Application2.Copyright"), 128),
                             chunk(png, "Copyright")))
    out.string("kMDItemCopyright", *copyright);

  std::optional<double> created;
  if (auto date = exifText(exif, "Exif.Photo.DateTimeOriginal"))
    created = parseDate(*date, exifText(exif, "Exif.Photo.OffsetTimeOriginal"));
  if (!created) {
    if (auto date =
            reconciled(iptcNow, xmpText(xmp, "Xmp.photoshop.DateCreated"), iptcDateTime(iptc), 0))
      created = parseDate(*date, std::nullopt);
  }
  if (!created) {
    if (auto date = first(xmpText(xmp, "Xmp.exif.DateTimeOriginal"),
                          xmpText(xmp, "Xmp.xmp.CreateDate"), chunk(png, "Creation Time")))
      created = parseDate(*date, std::nullopt);
  }
  if (created) out.date("kMDItemContentCreationDate", *created);
  std::optional<double> modified;
  if (auto date = exifText(exif, "Exif.Image.DateTime"))
    modified = parseDate(*date, exifText(exif, "Exif.Photo.OffsetTime"));
  if (!modified && iptcNow != IptcState::ChangedAfterXmp) {
    if (auto date = xmpText(xmp, "Xmp.xmp.ModifyDate")) modified = parseDate(*date, std::nullopt);
  }
  if (modified) out.date("kMDItemContentModificationDate", *modified);

  if (image->pixelWidth() > 0) out.integer("kMDItemPixelWidth", image->pixelWidth());
  if (image->pixelHeight() > 0) out.integer("kMDItemPixelHeight", image->pixelHeight());
  auto orientation = exif.findKey(Exiv2::ExifKey("Exif.Image.Orientation"));
  if (orientation != exif.end() && orientation->count() > 0)
    out.integer("kMDItemOrientation", orientation->toLong(0));
  if (auto make = exifText(exif, "Exif.Image.Make")) out.string("kMDItemAcquisitionMake", *make);
  if (auto model = exifText(exif, "Exif.Image.Model"))
    out.string("kMDItemAcquisitionModel", *model);
  if (auto exposure = exifNumber(exif, "Exif.Photo.ExposureTime"))
    out.number("kMDItemExposureTimeSeconds", *exposure);
  if (auto aperture = exifNumber(exif, "Exif.Photo.FNumber"))
    out.number("kMDItemFNumber", *aperture);
  if (auto iso = exifNumber(exif, "Exif.Photo.ISOSpeedRatings"))
    out.number("kMDItemISOSpeed", *iso);
  if (auto focal = exifNumber(exif, "Exif.Photo.FocalLength"))
    out.number("kMDItemFocalLength", *focal);
  if (auto latitude =
          gpsCoordinate(exif, "Exif.GPSInfo.GPSLatitude", "Exif.GPSInfo.GPSLatitudeRef"))
    out.number("kMDItemLatitude", *latitude);
  if (auto longitude =
          gpsCoordinate(exif, "Exif.GPSInfo.GPSLongitude", "Exif.GPSInfo.GPSLongitudeRef"))
    out.number("kMDItemLongitude", *longitude);
  if (auto altitude = exifNumber(exif, "Exif.GPSInfo.GPSAltitude")) {
    auto below = exif.findKey(Exiv2::ExifKey("Exif.GPSInfo.GPSAltitudeRef"));
    bool belowSea = below != exif.end() && below->count() > 0 && below->toLong(0) == 1;
    out.number("kMDItemAltitude", belowSea ? -*altitude : *altitude);
  }
  readText(out, contentType ? contentType : "", path);
  return true;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekImageImporterFactory, importImage)
