// What OCR is asked to do, and in which languages: the importers read it themselves, without
// loading the OCR module.
#include <unicode/locid.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "ocr.h"

namespace ulvek::plugin::ocr {
namespace {

namespace fs = std::filesystem;

// Where Debian's tesseract-ocr-* packages put the models.
constexpr const char* kDebianModels = "/usr/share/tesseract-ocr/5/tessdata";

std::optional<double> number(const std::optional<std::string>& text) {
  if (!text || text->empty()) return std::nullopt;
  char* end = nullptr;
  double value = std::strtod(text->c_str(), &end);
  if (*end || !std::isfinite(value)) return std::nullopt;
  return value;
}

bool yes(const std::optional<std::string>& text) {
  return text && (*text == "1" || *text == "true" || *text == "YES" || *text == "yes");
}

}  // namespace

Settings settingsOf(const Attributes& attributes) {
  Settings settings;
  settings.enabled = !yes(attributes.setting("DisableOCR"));
  if (auto languages = attributes.setting("OCRLanguages")) settings.languages = *languages;
  if (auto dpi = number(attributes.setting("OCRResolution")); dpi && *dpi >= 50 && *dpi <= 1200)
    settings.resolution = static_cast<int>(*dpi);
  if (auto seconds = number(attributes.setting("OCRTimeLimit")); seconds && *seconds > 0)
    settings.timeLimit = std::chrono::duration<double>(*seconds);
  return settings;
}

std::string modelFolder() {
  if (const char* prefix = std::getenv("TESSDATA_PREFIX"); prefix && *prefix) return prefix;
  return kDebianModels;
}

std::vector<std::string> installedLanguages(const std::string& folder) {
  std::vector<std::string> languages;
  std::error_code error;
  for (auto it = fs::directory_iterator(folder, error); !error && it != fs::directory_iterator();
       it.increment(error)) {
    if (it->path().extension() != ".traineddata") continue;
    std::string name = it->path().stem().string();
    if (name != kOrientationModel && name != "equ") languages.push_back(name);
  }
  std::sort(languages.begin(), languages.end());
  return languages;
}

std::string languagesForLocale(const std::string& locale,
                               const std::vector<std::string>& installed) {
  std::string language = locale.substr(0, locale.find_first_of("_.@"));
  if (language.empty() || language == "C" || language == "POSIX") return "eng";
  // Tesseract names its models by the three-letter codes ICU knows ("deu", "fra").
  std::string code = icu::Locale(language.c_str()).getISO3Language();
  if (code.empty() || code == "eng") return "eng";
  if (std::find(installed.begin(), installed.end(), code) == installed.end()) return "eng";
  return code + "+eng";
}

std::string defaultLanguages() {
  std::string locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (const char* value = std::getenv(name); value && *value) {
      locale = value;
      break;
    }
  }
  return languagesForLocale(locale, installedLanguages(modelFolder()));
}

void logReading(const std::string& path, int pages, const std::string& languages) {
  std::fprintf(stderr, "OCR: %s (%d %s, language %s)\n", path.c_str(), pages,
               pages == 1 ? "page" : "pages", languages.c_str());
}

}  // namespace ulvek::plugin::ocr
