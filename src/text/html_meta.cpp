#include "text/html_meta.h"

#include "base/text_limits.h"
#include "text/character_tables.h"
#include "text/entity_conversion.h"
#include "text/html_to_text.h"
#include "text/markup_scanner.h"
#include "text/string_utilities.h"

namespace ulvek {

namespace {

// A title or meta value is cut to kMaxValueUtf8Bytes in the result. Reading a few times that
// many units leaves room for references that shrink when converted, while a 100 MB title costs
// no more than this.
constexpr std::size_t kMaxRawValueUnits = 4 * kMaxValueUtf8Bytes;

// Meta values cleaned for the import result: references converted, markup turned into text.
TextString cleanedMetaValue(TextView raw) {
  TextString value = stringByConvertingEntitiesToCharacters(raw);
  if (countLT(value)) {
    return stringByRemovingMultipleFeeds(stringByConvertingHtml2PlainText(value));
  }
  return stringByRemovingMultipleWhiteSpaces(value);
}

// Collects the meta tags of the head; the body start tag ends the search.
HtmlMetaAttributes metaAttributes(const MarkupSource& html, bool cleanValues) {
  HtmlMetaAttributes attributes;
  auto handler = [&](const MarkupItem& item) {
    if (item.nameLength != 4) return false;
    if (item.nameIs("body")) return true;
    if (!item.nameIs("meta")) return false;
    std::optional<TextString> key = attributeOfTagCharacters(item.units, item.tagRange(), "NAME");
    if (!key) key = attributeOfTagCharacters(item.units, item.tagRange(), "PROPERTY");
    if (!key) return false;
    std::optional<TextString> content =
        contentAttributeOfTagCharacters(item.units, item.tagRange());
    if (!content) return false;
    if (content->size() > kMaxRawValueUnits) content->resize(kMaxRawValueUnits);
    TextString value = cleanValues ? cleanedMetaValue(*content) : std::move(*content);
    applyConversionTable(*key, lowerCharsTable());
    auto [entry, inserted] = attributes.try_emplace(std::move(*key), value);
    if (!inserted && entry->second.size() < kMaxRawValueUnits) {
      entry->second.push_back(u' ');
      entry->second.append(value);
    }
    return false;
  };
  html.scan(handler);
  return attributes;
}

}  // namespace

TextString htmlTitle(const MarkupSource& html) {
  TextString title;
  auto handler = [&](const MarkupItem& item) {
    if (!item.hasName()) return false;
    if (item.nameIs("body")) return true;
    if (!item.nameIs("title") || !isTagClosed(item.tag())) return false;
    title = item.textRun().substr(0, kMaxRawValueUnits);
    return true;
  };
  html.scan(handler);
  return title;
}

TextString htmlTitle(TextView html) { return htmlTitle(WholeMarkup(html)); }

TextString normalizedHtmlTitle(TextView html) { return normalizedHtmlTitle(WholeMarkup(html)); }

TextString normalizedHtmlTitle(const MarkupSource& html) {
  TextString title = htmlTitle(html);
  if (title.empty()) return title;
  return stringByTrimmingWhiteSpaces(stringByConvertingEntitiesToCharacters(title));
}

HtmlMetaAttributes htmlMetaAttributes(TextView html) {
  return metaAttributes(WholeMarkup(html), false);
}

HtmlMetaAttributes htmlMetaAttributesByConvertingEntitiesToCharacters(TextView html) {
  return metaAttributes(WholeMarkup(html), true);
}

HtmlMetaAttributes htmlMetaAttributesByConvertingEntitiesToCharacters(const MarkupSource& html) {
  return metaAttributes(html, true);
}

bool countLT(TextView text, std::size_t* lessThanCount, std::size_t* greaterThanCount) {
  std::size_t lessThan = 0;
  std::size_t greaterThan = 0;
  for (char16_t c : text) {
    lessThan += c == u'<';
    greaterThan += c == u'>';
  }
  if (lessThanCount) *lessThanCount = lessThan;
  if (greaterThanCount) *greaterThanCount = greaterThan;
  return lessThan == greaterThan && lessThan != 0;
}

}  // namespace ulvek
