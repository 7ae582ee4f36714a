#include "readers/xml/feed_text.h"

#include <string>
#include <string_view>

#include "readers/xml/xml_events.h"
#include "text/html_to_text.h"
#include "text/string_utilities.h"

namespace ulvek {

namespace {

// Names as written, with any namespace prefix dropped: feeds spell them both ways.
std::string_view localName(std::string_view name) {
  std::size_t colon = name.rfind(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

bool isFeedRoot(std::string_view name) {
  return name == "rss" || name == "feed" || localName(name) == "RDF";
}

bool isItem(std::string_view name) { return name == "item" || name == "entry"; }

// The elements whose text is read, at the feed's level or an item's.
bool isTitle(std::string_view name) { return name == "title"; }
bool isBody(std::string_view name) {
  return name == "description" || name == "subtitle" || name == "summary" || name == "content" ||
         name == "encoded";  // content:encoded
}

// The markup as UTF-8 without its XML declaration: the text is decoded already, so a
// declaration naming another encoding would be read wrongly.
std::string undeclaredUtf8(TextView markup) {
  std::string xml = toUtf8(markup);
  std::size_t start = xml.find_first_not_of(" \t\r\n");
  if (start != std::string::npos && xml.compare(start, 5, "<?xml") == 0) {
    std::size_t end = xml.find("?>", start);
    if (end != std::string::npos) xml.erase(0, end + 2);
  }
  return xml;
}

// The name of the first element, past declarations, comments and processing instructions; a
// page that is no feed is told by it before it is converted and parsed.
std::u16string_view rootName(TextView markup) {
  std::size_t at = 0;
  while ((at = markup.find(u'<', at)) != TextView::npos) {
    if (markup.substr(at, 4) == u"<!--") {
      at = markup.find(u"-->", at);
      if (at == TextView::npos) return {};
    } else if (at + 1 < markup.size() && markup[at + 1] != u'?' && markup[at + 1] != u'!') {
      std::size_t end = markup.find_first_of(u" \t\r\n/>", at + 1);
      return markup.substr(at + 1, end == TextView::npos ? TextView::npos : end - at - 1);
    }
    ++at;
  }
  return {};
}

}  // namespace

std::optional<TextString> feedText(TextView markup) {
  if (!isFeedRoot(toUtf8(rootName(markup)))) return std::nullopt;
  std::string xml = undeclaredUtf8(markup);
  bool feed = false;
  bool decided = false;
  int depth = 0;
  int itemDepth = 0;     // depth of the open item, 0 outside one
  int readingDepth = 0;  // depth of the title or body being read, 0 when none
  bool readingBody = false;
  std::string piece;
  TextString text;
  bool itemHasBody = false;

  auto append = [&](TextView part) {
    part = trimmedWhiteSpaces(part);
    if (part.empty()) return;
    if (!text.empty()) text += u'\n';
    text += part;
  };

  XmlEvents events;
  events.start = [&](std::string_view name, const char**) {
    ++depth;
    if (!decided) {
      decided = true;
      feed = isFeedRoot(name);
    }
    if (!feed || readingDepth) return;
    std::string_view local = localName(name);
    if (isItem(local)) {
      itemDepth = depth;
      itemHasBody = false;
      return;
    }
    // An item's own children, or the channel's (depth 2 in Atom and RSS 1.0, 3 in RSS 2.0).
    const bool ownChild = itemDepth ? depth == itemDepth + 1 : depth <= 3;
    if (!ownChild) return;
    if (isTitle(local) || (isBody(local) && !(itemDepth && itemHasBody))) {
      readingDepth = depth;
      readingBody = !isTitle(local);
      piece.clear();
    }
  };
  auto finishPiece = [&] {
    TextString part = fromUtf8(piece);
    if (readingBody) {
      part = stringByConvertingHtml2PlainTextNonUmlauted(part, false, true, false, false);
      if (itemDepth) itemHasBody = true;
    }
    append(part);
    readingDepth = 0;
  };
  events.end = [&](std::string_view) {
    if (readingDepth == depth) finishPiece();
    if (itemDepth == depth) itemDepth = 0;
    --depth;
  };
  events.text = [&](std::string_view data) {
    if (readingDepth) piece += data;
  };
  // A feed cut inside a title or body keeps the part before the cut.
  if (!parseXml(xml, events) && readingDepth) finishPiece();
  if (!feed || text.empty()) return std::nullopt;
  return text;
}

}  // namespace ulvek
