#include "readers/epub/styled_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "text/entity_conversion.h"
#include "text/markup_scanner.h"
#include "text/string_utilities.h"

namespace ulvek {
namespace {

// Elements that end a paragraph where they start and where they end.
constexpr std::array<std::string_view, 30> kBlockElements = {
    "p",     "div",     "h1",         "h2",      "h3",         "h4",     "h5",     "h6",
    "li",    "ul",      "ol",         "dl",      "dt",         "dd",     "table",  "tr",
    "pre",   "section", "blockquote", "nav",     "header",     "footer", "figure", "article",
    "aside", "hr",      "body",       "address", "figcaption", "caption"};
// Elements whose contents no reader sees (script and style arrive as one item with their body).
constexpr std::array<std::string_view, 5> kHiddenElements = {"head", "script", "style", "title",
                                                             "template"};

template <std::size_t N>
bool nameIn(const MarkupItem& item, const std::array<std::string_view, N>& names) {
  for (std::string_view name : names)
    if (item.nameIs(name)) return true;
  return false;
}

bool isWhite(char16_t c) {
  return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r' || c == u'\f';
}

class StyledTextBuilder {
 public:
  bool handle(const MarkupItem& item) {
    addText(item.textRun());
    if (item.isFinal() || item.state != MarkupState::Tag || !item.hasName()) return false;
    bool open = isTagOpen(item.tag());
    bool selfClosing = open && isTagClosed(item.tag());
    if (nameIn(item, kHiddenElements)) {
      // A script or style item already holds its whole element.
      if (item.nameIs("head") || item.nameIs("title") || item.nameIs("template"))
        adjust(hidden_, open && !selfClosing);
      return false;
    }
    if (item.nameIs("br")) {
      lineBreak(1);
    } else if (nameIn(item, kBlockElements)) {
      lineBreak(item.nameIs("li") || item.nameIs("tr") || item.nameIs("dt") ? 1 : 2);
      if (item.nameIs("pre") && !selfClosing) adjust(pre_, open);
      if (item.name().size() == 2 && (item.nameIs("h1") || item.nameIs("h2") || item.nameIs("h3") ||
                                      item.nameIs("h4") || item.nameIs("h5") || item.nameIs("h6")))
        style_.heading = open ? item.name()[1] - u'0' : 0;
    } else if (item.nameIs("b") || item.nameIs("strong")) {
      if (!selfClosing) adjust(bold_, open);
    } else if (item.nameIs("i") || item.nameIs("em") || item.nameIs("cite") || item.nameIs("var") ||
               item.nameIs("dfn")) {
      if (!selfClosing) adjust(italic_, open);
    } else if (item.nameIs("a")) {
      if (!open) {
        if (!links_.empty()) links_.pop_back();
      } else if (!selfClosing) {
        std::optional<TextString> href = attributeOfTagWithName(item.tag(), "HREF");
        links_.push_back(href ? toUtf8(stringByConvertingStandardEntitiesToCharacters(*href))
                              : std::string());
      }
    }
    return false;
  }

  StyledText finish() { return std::move(text_); }

 private:
  static void adjust(int& counter, bool open) {
    if (open)
      ++counter;
    else if (counter > 0)
      --counter;
  }

  void lineBreak(int count) {
    if (text_.runs.empty()) return;
    pendingBreaks_ = std::max(pendingBreaks_, count);
  }

  void addText(TextView run) {
    if (run.empty() || hidden_ > 0) return;
    TextString converted = stringByConvertingEntitiesToCharacters(run);
    TextString piece;
    for (char16_t c : converted) {
      if (pre_ == 0 && isWhite(c)) {
        bool afterSpace = piece.empty() ? atLineStart() || lastWasSpace() : piece.back() == u' ';
        if (!afterSpace) piece += u' ';
        continue;
      }
      if (pendingBreaks_ > 0 && piece.empty()) flushBreaks();
      piece += c == u'\r' ? u'\n' : c;
    }
    append(piece);
  }

  bool atLineStart() const {
    if (pendingBreaks_ > 0) return true;
    return text_.runs.empty() || text_.runs.back().text.empty() ||
           text_.runs.back().text.back() == u'\n';
  }
  bool lastWasSpace() const {
    return !text_.runs.empty() && !text_.runs.back().text.empty() &&
           text_.runs.back().text.back() == u' ';
  }

  void flushBreaks() {
    if (!text_.runs.empty()) {
      TextString& last = text_.runs.back().text;
      while (!last.empty() && last.back() == u' ') last.pop_back();
      // Breaks belong to no heading or link: they go in a plain run.
      TextString breaks(static_cast<std::size_t>(pendingBreaks_), u'\n');
      if (text_.runs.back().style == TextStyle{})
        last += breaks;
      else
        text_.runs.push_back({breaks, TextStyle{}});
    }
    pendingBreaks_ = 0;
  }

  void append(const TextString& piece) {
    if (piece.empty()) return;
    TextStyle style = style_;
    style.bold = bold_ > 0;
    style.italic = italic_ > 0;
    style.link = links_.empty() ? std::string() : links_.back();
    if (!text_.runs.empty() && text_.runs.back().style == style)
      text_.runs.back().text += piece;
    else
      text_.runs.push_back({piece, style});
  }

  StyledText text_;
  TextStyle style_;
  int bold_ = 0, italic_ = 0, pre_ = 0, hidden_ = 0;
  int pendingBreaks_ = 0;
  std::vector<std::string> links_;
};

// Heading sizes in half points, h1 to h6; body text is 12 points.
constexpr std::array<int, 6> kHeadingSizes = {48, 36, 28, 24, 20, 16};

void appendEscaped(std::string& rtf, TextView text) {
  for (char16_t c : text) {
    if (c == u'\\' || c == u'{' || c == u'}') {
      rtf += '\\';
      rtf += static_cast<char>(c);
    } else if (c == u'\n') {
      rtf += "\\par\n";
    } else if (c == u'\t') {
      rtf += "\\tab ";
    } else if (c < 0x20) {
      continue;
    } else if (c < 0x80) {
      rtf += static_cast<char>(c);
    } else {
      // \u takes a signed 16-bit number; "?" is the fallback for readers without Unicode.
      rtf += "\\u" + std::to_string(static_cast<std::int16_t>(c)) + '?';
    }
  }
}

void appendQuoted(std::string& rtf, std::string_view text) {
  rtf += '"';
  for (char c : text) {
    if (c == '"' || c == '\\' || c == '{' || c == '}') continue;
    rtf += c;
  }
  rtf += '"';
}

}  // namespace

TextString StyledText::string() const {
  TextString joined;
  for (const StyledRun& run : runs) joined += run.text;
  return joined;
}

StyledText styledTextFromHtml(TextView html) {
  StyledTextBuilder builder;
  ScanMarkup(
      html, [&](const MarkupItem& item) { return builder.handle(item); }, nullptr, false);
  return builder.finish();
}

std::string rtfString(const StyledText& text) {
  std::string rtf =
      "{\\rtf1\\ansi\\ansicpg1252\\deff0\\uc1{\\fonttbl{\\f0\\froman Times New Roman;}}\n"
      "\\f0\\fs24 ";
  for (const StyledRun& run : text.runs) {
    const TextStyle& style = run.style;
    bool link = !style.link.empty();
    if (link) {
      rtf += "{\\field{\\*\\fldinst{HYPERLINK ";
      // Links inside the document name an anchor.
      if (style.link.starts_with('#')) {
        rtf += "\\\\l ";
        appendQuoted(rtf, std::string_view(style.link).substr(1));
      } else {
        appendQuoted(rtf, style.link);
      }
      rtf += "}}{\\fldrslt";
    }
    rtf += '{';
    if (style.heading >= 1 && style.heading <= 6)
      rtf += "\\b\\fs" + std::to_string(kHeadingSizes[style.heading - 1]);
    else if (style.bold)
      rtf += "\\b";
    if (style.italic) rtf += "\\i";
    if (link) rtf += "\\ul";
    // A space ends the last control word; plain runs have none.
    if (rtf.back() != '{') rtf += ' ';
    appendEscaped(rtf, run.text);
    rtf += '}';
    if (link) rtf += "}}";
  }
  rtf += "\n}\n";
  return rtf;
}

}  // namespace ulvek
