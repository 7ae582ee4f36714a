#include "importers/importer_corrections.h"

#include <algorithm>

#include "base/ascii.h"
#include "text/character_tables.h"
#include "text/html_to_text.h"

namespace ulvek {
namespace {

constexpr std::string_view kTextContent = "kMDItemTextContent";

// A value that is one angle-bracketed word ("<title>"), alone or as an array's only element.
bool isPlaceholder(const PropertyValue& value) {
  const PropertyValue* single = &value;
  if (const PropertyArray* list = value.array()) {
    if (list->size() != 1) return false;
    single = &list->front();
  }
  const TextString* text = single->string();
  if (!text || text->size() < 2 || text->front() != u'<' || text->back() != u'>') return false;
  return std::none_of(text->begin(), text->end(), [](char16_t c) { return isWhiteOrNewline(c); });
}

void dropPlaceholders(PropertyDictionary& attributes) {
  std::erase_if(attributes, [](const auto& entry) { return isPlaceholder(entry.second); });
}

void textFromHTML(PropertyDictionary& attributes) {
  auto found = attributes.find(kTextContent);
  if (found == attributes.end() || !found->second.string()) return;
  found->second = PropertyValue(stringByConvertingHtml2PlainTextNonUmlauted(
      *found->second.string(), false, false, true, true));
}

void textFromNotes(PropertyDictionary& attributes) {
  const PropertyValue* list = find(attributes, "com_literatureandlatte_scapple_noteText");
  const PropertyArray* notes = list ? list->array() : nullptr;
  if (find(attributes, kTextContent) || !notes) return;
  TextString joined;
  for (const PropertyValue& note : *notes) {
    if (!note.string()) return;
    if (&note != &notes->front()) joined += u'\n';
    joined += *note.string();
  }
  attributes[std::string(kTextContent)] = PropertyValue(std::move(joined));
}

struct Correction {
  std::string_view suffix;
  void (*apply)(PropertyDictionary& attributes);
};

constexpr Correction kCorrections[] = {
    {".mellel", dropPlaceholders},
    {".mht", textFromHTML},
    {".scap", textFromNotes},
};

}  // namespace

void correctImporterAnswer(PropertyDictionary& attributes, const std::string& path) {
  for (const Correction& correction : kCorrections) {
    if (!endsWithIgnoringASCIICase(path, correction.suffix)) continue;
    correction.apply(attributes);
    return;
  }
}

}  // namespace ulvek
