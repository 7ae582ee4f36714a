#include "text/html_to_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <optional>
#include <string_view>

#include "base/text_limits.h"
#include "text/character_tables.h"
#include "text/entity_conversion.h"
#include "text/markup_scanner.h"

namespace ulvek {

namespace {

// Body depth of a conversion that takes the whole document as body.
constexpr std::int64_t kWholeDocumentDepth = 0x3FFFFFFFFFFFFFFF;

// Bits of the Google index state; only the index bit decides whether text is written.
enum GoogleIndexState : unsigned {
  kGoogleIndex = 1,
  kGoogleSnippet = 2,
  kGoogleAnchor = 4,
  kGoogleAll = 7,
};

// Junk limits: runs this long are navigation dumps or inline data, not prose.
constexpr std::size_t kJunkRunLength = 10000;
constexpr std::size_t kJunkLinkRunLength = 3501;
constexpr std::size_t kJunkLineLength = 20000;
// Dropped text counts as prose (junk removal did something) from this size and density on.
constexpr std::size_t kProseMinimumLength = 100;
constexpr std::size_t kProseMinimumSeparatorRuns = 5;
constexpr std::size_t kProseMinimumAlphaNumerics = 100;
constexpr std::size_t kProseAlphaNumericsPerSeparator = 6;
// Google comments shorter than this cannot name a state.
constexpr std::size_t kGoogleCommentMinimumLength = 19;
// Elements pushed this far off the page are hidden.
constexpr std::int64_t kOffPagePosition = -1000;

// What a tag writes when the current line has text.
enum class BlockBreak { None, Paragraph, Line, Row, Cell, Space };

// What a tag does to the conversion state.
enum class Element {
  None,
  Anchor,
  Heading,
  Div,
  Span,
  Pre,
  Code,
  Plaintext,
  Image,
  Input,
  Table,
  Body,
  Head,
  Font,
  IFrame,
  NoFrames,
  NoScript,
  Marquee,
  Textarea,
  Option,
  Select,
  Title,
};

struct TagRule {
  std::u16string_view name;  // lower case
  BlockBreak blockBreak;
  Element element;
};

// "h" followed by a digit is matched separately (paragraph break, heading).
constexpr std::array<TagRule, 36> kTagRules = {{
    {u"p", BlockBreak::Paragraph, Element::None},
    {u"div", BlockBreak::Paragraph, Element::Div},
    {u"dir", BlockBreak::Paragraph, Element::None},
    {u"menu", BlockBreak::Paragraph, Element::None},
    {u"table", BlockBreak::Paragraph, Element::Table},
    {u"blockquote", BlockBreak::Paragraph, Element::None},
    {u"hr", BlockBreak::Paragraph, Element::None},
    {u"br", BlockBreak::Line, Element::None},
    {u"li", BlockBreak::Line, Element::None},
    {u"ol", BlockBreak::Line, Element::None},
    {u"ul", BlockBreak::Line, Element::None},
    {u"dd", BlockBreak::Line, Element::None},
    {u"dl", BlockBreak::Line, Element::None},
    {u"dt", BlockBreak::Line, Element::None},
    {u"tr", BlockBreak::Row, Element::None},
    {u"td", BlockBreak::Cell, Element::None},
    {u"th", BlockBreak::Cell, Element::None},
    {u"code", BlockBreak::Space, Element::Code},
    {u"cite", BlockBreak::Space, Element::None},
    {u"a", BlockBreak::None, Element::Anchor},
    {u"span", BlockBreak::None, Element::Span},
    {u"pre", BlockBreak::None, Element::Pre},
    {u"plaintext", BlockBreak::None, Element::Plaintext},
    {u"img", BlockBreak::None, Element::Image},
    {u"input", BlockBreak::None, Element::Input},
    {u"body", BlockBreak::None, Element::Body},
    {u"head", BlockBreak::None, Element::Head},
    {u"font", BlockBreak::None, Element::Font},
    {u"iframe", BlockBreak::None, Element::IFrame},
    {u"noframes", BlockBreak::None, Element::NoFrames},
    {u"noscript", BlockBreak::None, Element::NoScript},
    {u"marquee", BlockBreak::None, Element::Marquee},
    {u"textarea", BlockBreak::None, Element::Textarea},
    {u"option", BlockBreak::None, Element::Option},
    {u"select", BlockBreak::None, Element::Select},
    {u"title", BlockBreak::None, Element::Title},
}};

constexpr std::size_t kLongestRuleName = 10;
constexpr TagRule kNoRule = {u"", BlockBreak::None, Element::None};
constexpr TagRule kHeadingRule = {u"h", BlockBreak::Paragraph, Element::Heading};

// The rule for a tag name, compared without regard to case through the upper table.
TagRule ruleForName(TextView name, ConversionTable upper) {
  if (name.empty() || name.size() > kLongestRuleName) return kNoRule;
  char16_t lowered[kLongestRuleName];
  for (std::size_t i = 0; i < name.size(); ++i) {
    char16_t c = upper[name[i]];
    if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c + 32);
    lowered[i] = c;
  }
  TextView key(lowered, name.size());
  if (key.size() == 2 && key[0] == u'h' && key[1] >= u'0' && key[1] <= u'9') return kHeadingRule;
  for (const TagRule& rule : kTagRules) {
    if (rule.name == key) return rule;
  }
  return kNoRule;
}

// ---- Tag shapes ----

// An end tag or a self-closing tag.
bool isClosedTag(TextView tag) {
  return tag.size() >= 4 && (tag[1] == u'/' || tag[tag.size() - 2] == u'/');
}

// Any tag of at least 3 units that is not an end tag (self-closing ones included).
bool isOpeningTag(TextView tag) { return tag.size() >= 3 && tag[1] != u'/'; }

// +1 for a start tag, −1 for an end tag, 0 for a self-closing or degenerate one.
std::int64_t depthChange(TextView tag) {
  if (tag.size() < 3 || tag[tag.size() - 2] == u'/') return 0;
  return tag[1] == u'/' ? -1 : 1;
}

// ---- Small searches over attribute values ----

// Position of an ASCII needle in text at or after from, ignoring case through the upper table.
std::size_t findNoCase(TextView text, std::string_view needle, std::size_t from = 0) {
  if (needle.empty() || text.size() < needle.size()) return TextView::npos;
  ConversionTable upper = upperCharsTable();
  const auto upperAscii = [](char c) {
    return static_cast<char16_t>(c >= 'a' && c <= 'z' ? c - 32 : c);
  };
  const char16_t first = upperAscii(needle[0]);
  for (std::size_t i = from; i + needle.size() <= text.size(); ++i) {
    if (upper[text[i]] != first) continue;
    std::size_t k = 1;
    while (k < needle.size() && upper[text[i + k]] == upperAscii(needle[k])) ++k;
    if (k == needle.size()) return i;
  }
  return TextView::npos;
}

// The leading integer of a value ("3", "-9999px", "50%"); nothing without a digit.
std::optional<std::int64_t> leadingInteger(TextView value) {
  std::size_t i = 0;
  bool negative = false;
  if (i < value.size() && (value[i] == u'-' || value[i] == u'+')) negative = value[i++] == u'-';
  if (i >= value.size() || value[i] < u'0' || value[i] > u'9') return std::nullopt;
  std::int64_t number = 0;
  for (; i < value.size() && value[i] >= u'0' && value[i] <= u'9'; ++i) {
    if (number < (INT64_MAX - 9) / 10) number = number * 10 + (value[i] - u'0');
  }
  return negative ? -number : number;
}

// The integer value of a CSS property in a style text ("top: -9999px" → −9999). The property
// name must start a word, so "top" does not match "margin-top".
std::optional<std::int64_t> styleIntegerProperty(TextView style, std::string_view property) {
  for (std::size_t at = findNoCase(style, property); at != TextView::npos;
       at = findNoCase(style, property, at + 1)) {
    if (at > 0 && (isAlphaNumeric(style[at - 1]) || style[at - 1] == u'-')) continue;
    std::size_t i = at + property.size();
    while (i < style.size() && isWhiteOrNewline(style[i])) ++i;
    if (i >= style.size() || style[i] != u':') continue;
    ++i;
    while (i < style.size() && isWhiteOrNewline(style[i])) ++i;
    if (auto number = leadingInteger(style.substr(i))) return number;
  }
  return std::nullopt;
}

// ---- The conversion ----

using Html2TextSettings = HtmlToTextOptions;

// State of one conversion. The output grows as needed; positions are indexes into it.
struct Html2TextContext {
  TextString output;
  std::size_t lastBreak = 0;  // just after the last line or paragraph break written
  std::optional<TextString> bodyColour;
  bool entities = true;
  bool inMarquee = false;
  bool inTextarea = false;
  bool inNoframes = false;
  bool inNoscript = false;
  bool standardEntities = true;
  bool nonUmlauted = false;
  bool lineHasText = false;
  bool reformat = false;
  bool collapse = true;
  bool spacePending = false;
  bool produced = false;
  bool junkFont = false;
  bool feedDate = false;
  bool inHiddenDiv = false;
  bool inHiddenSpan = false;
  bool inOption = false;
  bool removeJunk = false;
  bool removedJunk = false;
  bool googleTags = false;
  bool imageAlts = true;
  std::int64_t bodyDepth = 0;
  std::int64_t linkDepth = 0;
  unsigned googleState = kGoogleAll;

  Html2TextContext(const Html2TextSettings& settings, std::int64_t initialBodyDepth)
      : entities(settings.entities),
        standardEntities(settings.standardEntities),
        nonUmlauted(settings.nonUmlauted),
        reformat(settings.reformat),
        removeJunk(settings.removeJunk),
        googleTags(settings.googleTags),
        imageAlts(settings.imageAlts),
        bodyDepth(initialBodyDepth) {}
};

class Html2TextConverter : public MarkupTagHandler {
 public:
  Html2TextConverter(const Html2TextSettings& settings, bool simplified, std::size_t inputLength)
      : settings_(settings),
        simplified_(simplified),
        context_(settings, settings.onlyBody ? 0 : kWholeDocumentDepth),
        white_(*WhiteSpaceAndNewlineCharacterSetRep()),
        blank_(*WhiteSpaceCharacterSetRep()),
        alphaNumeric_(*AlphaNumericCharacterSetRep()),
        upper_(upperCharsTable()),
        fold_(umlautsCharsTable()) {
    // Text is rarely longer than half its markup; the buffer grows past this when it is. The
    // reservation costs nothing until written.
    context_.output.reserve(inputLength / 2 + 16);
  }

  // Starts over, taking the whole document as body (a fragment without a body element).
  void restartWithWholeDocument() {
    TextString output = std::move(context_.output);
    output.clear();
    context_ = Html2TextContext(settings_, kWholeDocumentDepth);
    context_.output = std::move(output);
  }

  const Html2TextContext& context() const { return context_; }
  TextString takeOutput() { return std::move(context_.output); }

  bool handleItem(const MarkupItem& item) override {
    if (simplified_) {
      handleSimplifiedItem(item);
    } else {
      handleItemInContext(item);
    }
    return false;
  }

 private:
  // ---- Output ----

  char16_t lastUnit() const { return context_.output.empty() ? 0 : context_.output.back(); }
  bool endsWithWhite() const { return white_.contains(lastUnit()); }
  void put(char16_t c) { context_.output.push_back(c); }

  // A line or paragraph break: the line starts empty.
  void writeBreak(TextView breakUnits) {
    context_.output.append(breakUnits);
    context_.lastBreak = context_.output.size();
    context_.lineHasText = false;
    context_.spacePending = false;
  }

  // Drops a line that has grown past any plausible paragraph.
  void applyLineLimit() {
    if (!context_.removeJunk) return;
    if (context_.output.size() - context_.lastBreak <= kJunkLineLength) return;
    context_.output.resize(context_.lastBreak);
    context_.removedJunk = true;
  }

  // ---- Runs ----

  // Units the output may still take. Text past the result's cap is cut anyway, so a huge run is
  // read only a little past it: enough that trimming cannot hide the cut from the result's own
  // cap, which logs it.
  std::size_t room() const {
    const std::size_t limit = textLimitUtf8Bytes() + 64 * 1024;
    return context_.output.size() < limit ? limit - context_.output.size() : 0;
  }

  // The writable units of the text run before the item, at most `length` of them.
  char16_t* textRunUnits(const MarkupItem& item, std::size_t length) {
    if (item.mutableUnits) return item.mutableUnits + item.textLocation;
    return scratchCopy(item.units + item.textLocation, length);
  }

  char16_t* scratchCopy(const char16_t* units, std::size_t length) {
    scratch_.assign(units, length);
    return scratch_.data();
  }

  // Converts references (and folds) in place; answers the new length.
  std::size_t convertRun(char16_t* run, std::size_t length) {
    bool folded = false;
    if (length >= 4) {
      if (context_.entities) {
        length = ConvertEntitiesToCharacters(run, length, context_.standardEntities, false,
                                             context_.nonUmlauted);
        folded = true;
      } else if (context_.standardEntities) {
        length = ConvertStandardEntitiesToCharacters(run, length);
      }
    }
    if (context_.nonUmlauted && !folded) {
      for (std::size_t i = 0; i < length; ++i) run[i] = fold_[run[i]];
    }
    return length;
  }

  // Appends a run of text to the output with the whitespace rules in force.
  void appendTextRun(char16_t* run, std::size_t length) {
    if (context_.removeJunk && ((context_.collapse && length > kJunkRunLength) ||
                                (context_.linkDepth > 0 && length >= kJunkLinkRunLength))) {
      context_.removedJunk = true;
      return;
    }
    length = convertRun(run, length);
    if (length == 0) {
      context_.spacePending = context_.collapse;
      return;
    }
    const bool leadsWithWhite = white_.contains(run[0]);
    const bool endsWithWhiteRun = white_.contains(run[length - 1]);
    std::size_t start = 0;
    std::size_t end = length;
    if (context_.collapse) {
      while (start < end && white_.contains(run[start])) ++start;
      while (end > start && white_.contains(run[end - 1])) --end;
      if (start == end) {
        context_.spacePending = true;
        return;
      }
    }
    context_.spacePending = context_.spacePending || leadsWithWhite;
    if (context_.spacePending) {
      if (context_.lineHasText) {
        put(u' ');
      } else if (!context_.collapse && !context_.output.empty() && !endsWithWhite()) {
        put(u' ');
      }
    }
    if (context_.collapse || !context_.reformat) {
      copyCollapsingWhite(run + start, end - start);
      applyLineLimit();
      context_.spacePending = endsWithWhiteRun;
      context_.lineHasText = true;
      return;
    }
    reflow(run + start, end - start);
  }

  // Copies a run with every maximal white run written as one space.
  void copyCollapsingWhite(const char16_t* run, std::size_t length) {
    TextString& output = context_.output;
    std::size_t i = 0;
    while (i < length) {
      std::size_t plain = i;
      while (plain < length && !white_.contains(run[plain])) ++plain;
      output.append(run + i, plain - i);
      if (plain == length) break;
      output.push_back(u' ');
      i = plain + 1;
      while (i < length && white_.contains(run[i])) ++i;
    }
  }

  // Re-flows preformatted text: a blank line is a paragraph, a single line break joins lines
  // unless the next line starts like a list item, a quote or a closing brace.
  void reflow(const char16_t* run, std::size_t length) {
    std::size_t i = 0;
    while (i < length) {
      const char16_t c = run[i];
      if (isLineBreak(c)) {
        std::size_t breaks = 0;
        while (i < length && isLineBreak(run[i])) {
          if (run[i] == u'\r' && i + 1 < length && run[i + 1] == u'\n') ++i;
          ++breaks;
          ++i;
        }
        const char16_t next = i < length ? run[i] : 0;
        if (breaks >= 2) {
          applyLineLimit();
          writeBreak(u"\n\n");
        } else if (next == u' ' || next == u'-' || next == u'/' || next == u'>' || next == u'}') {
          applyLineLimit();
          writeBreak(u"\n");
        } else if (!endsWithWhite()) {
          put(u' ');
        }
        continue;
      }
      if (blank_.contains(c)) {
        while (i < length && blank_.contains(run[i])) ++i;
        put(u' ');
        continue;
      }
      put(c);
      ++i;
    }
    applyLineLimit();
    context_.spacePending = false;
    context_.lineHasText = context_.output.size() > context_.lastBreak;
  }

  // Measures a run that was not written because of its font: was it real prose?
  void measureDroppedRun(char16_t* run, std::size_t length) {
    length = convertRun(run, length);
    std::size_t start = 0;
    std::size_t end = length;
    while (start < end && white_.contains(run[start])) ++start;
    while (end > start && white_.contains(run[end - 1])) --end;
    if (end - start < kProseMinimumLength) return;
    std::size_t alphaNumerics = 0;
    std::size_t separatorRuns = 0;
    bool inSeparator = false;
    for (std::size_t i = start; i < end; ++i) {
      if (alphaNumeric_.contains(run[i])) {
        ++alphaNumerics;
        inSeparator = false;
      } else if (!inSeparator) {
        ++separatorRuns;
        inSeparator = true;
      }
    }
    if (separatorRuns >= kProseMinimumSeparatorRuns &&
        alphaNumerics >= kProseMinimumAlphaNumerics &&
        alphaNumerics >= kProseAlphaNumericsPerSeparator * separatorRuns) {
      context_.removedJunk = true;
    }
  }

  // ---- Items ----

  void handleItemInContext(const MarkupItem& item) {
    const TagRule rule = item.hasName() ? ruleForName(item.name(), upper_) : kNoRule;
    if (context_.bodyDepth < 1) {
      handleItemOutsideBody(item, rule);
      return;
    }
    context_.produced = true;
    handleTextRun(item, rule);
    if (!item.hasName()) {
      if (item.state == MarkupState::Comment && context_.googleTags) updateGoogleState(item);
      return;
    }
    const TextView tag = item.tag();
    if (context_.lineHasText) {
      writeBlockBreak(rule.blockBreak);
    } else {
      writeBreakOnEmptyLine(rule.blockBreak);
    }
    applyElementRule(item, tag, rule.element);
  }

  void handleItemOutsideBody(const MarkupItem& item, const TagRule& rule) {
    if (!item.hasName()) {
      if (item.state == MarkupState::Comment && context_.googleTags) updateGoogleState(item);
      return;
    }
    const TextView tag = item.tag();
    switch (rule.element) {
      case Element::NoFrames:
      case Element::NoScript:
        context_.bodyDepth += depthChange(tag);
        clearElementState();
        (rule.element == Element::NoFrames ? context_.inNoframes : context_.inNoscript) =
            !isClosedTag(tag);
        return;
      case Element::Body:
        enterOrLeaveBody(item, tag);
        return;
      case Element::Head:
        context_.bodyDepth -= depthChange(tag);
        clearElementState();
        context_.inNoframes = false;
        return;
      default:
        return;
    }
  }

  void clearElementState() {
    context_.inMarquee = false;
    context_.inTextarea = false;
    context_.bodyColour.reset();
    context_.junkFont = false;
    context_.feedDate = false;
    context_.inHiddenDiv = false;
    context_.inHiddenSpan = false;
    context_.inOption = false;
  }

  void enterOrLeaveBody(const MarkupItem& item, TextView tag) {
    context_.bodyDepth += depthChange(tag);
    clearElementState();
    context_.inNoframes = false;
    context_.bodyColour = attribute(item, "BGCOLOR");
  }

  // The text run in front of an item inside the body.
  void handleTextRun(const MarkupItem& item, const TagRule& rule) {
    const std::size_t length = std::min(item.tagLocation - item.textLocation, room());
    if (length == 0) return;
    if (context_.removeJunk && rule.element == Element::Title) return;
    if (context_.inHiddenDiv || context_.inHiddenSpan || context_.inOption) return;
    const bool invisible =
        context_.inNoframes || context_.inNoscript || context_.inMarquee || context_.inTextarea ||
        (context_.removeJunk && context_.junkFont) ||
        (context_.googleTags && (!(context_.googleState & kGoogleIndex) || context_.feedDate));
    if (!invisible) {
      appendTextRun(textRunUnits(item, length), length);
      return;
    }
    if (context_.junkFont && !context_.removedJunk) {
      measureDroppedRun(textRunUnits(item, length), length);
    }
  }

  void writeBlockBreak(BlockBreak blockBreak) {
    switch (blockBreak) {
      case BlockBreak::Paragraph:
        writeBreak(u"\n\n");
        return;
      case BlockBreak::Line:
      case BlockBreak::Row:
        writeBreak(u"\n");
        return;
      case BlockBreak::Cell:
        if (endsWithWhite()) {
          context_.spacePending = true;
        } else {
          put(u' ');
          context_.spacePending = false;
        }
        context_.lineHasText = false;
        return;
      case BlockBreak::Space:
        if (!endsWithWhite()) put(u' ');
        return;
      case BlockBreak::None:
        return;
    }
  }

  // Cells and rows still separate when the line holds no text yet.
  void writeBreakOnEmptyLine(BlockBreak blockBreak) {
    if (blockBreak == BlockBreak::Cell) {
      if (!context_.output.empty() && !endsWithWhite()) put(u' ');
    } else if (blockBreak == BlockBreak::Row) {
      if (!context_.output.empty() && !isLineBreak(lastUnit())) writeBreak(u"\n");
    }
  }

  void clearMarqueeAndTextarea() {
    context_.inMarquee = false;
    context_.inTextarea = false;
  }

  void changeLinkDepth(TextView tag) {
    if (isOpeningTag(tag)) {
      ++context_.linkDepth;
    } else if (context_.linkDepth > 0) {
      --context_.linkDepth;
    }
  }

  void applyElementRule(const MarkupItem& item, TextView tag, Element element) {
    switch (element) {
      case Element::Anchor:
        changeLinkDepth(tag);
        context_.spacePending = true;
        return;
      case Element::Heading:
        clearMarqueeAndTextarea();
        changeLinkDepth(tag);
        return;
      case Element::Div:
        clearMarqueeAndTextarea();
        context_.inHiddenDiv = isHiddenElement(item);
        return;
      case Element::Span:
        context_.inHiddenSpan = isHiddenElement(item);
        return;
      case Element::Pre:
        clearMarqueeAndTextarea();
        if (isClosedTag(tag)) {
          context_.collapse = true;
        } else {
          context_.collapse = false;
          if (context_.lineHasText || context_.spacePending) writeBreak(u"\n\n");
        }
        return;
      case Element::Code:
        clearMarqueeAndTextarea();
        context_.collapse = isClosedTag(tag);
        return;
      case Element::Plaintext:
        clearMarqueeAndTextarea();
        if (isClosedTag(tag)) {
          context_.collapse = true;
        } else {
          context_.collapse = false;
          writeBreak(u"\n\n");
        }
        return;
      case Element::Image:
        if (context_.imageAlts) appendImageText(item);
        return;
      case Element::Input:
        clearMarqueeAndTextarea();
        if (context_.output.empty() || endsWithWhite()) {
          context_.spacePending = true;
        } else {
          put(u' ');
          context_.spacePending = false;
        }
        return;
      case Element::Table:
        if (context_.output.size() < 2) return;
        clearMarqueeAndTextarea();
        if (!isLineBreak(lastUnit())) {
          writeBreak(u"\n\n");
        } else if (!isLineBreak(context_.output[context_.output.size() - 2])) {
          writeBreak(u"\n");
        }
        return;
      case Element::Body:
        enterOrLeaveBody(item, tag);
        return;
      case Element::Font:
        applyFontRule(item);
        return;
      case Element::IFrame:
      case Element::NoFrames:
        context_.inNoframes = !isClosedTag(tag);
        return;
      case Element::NoScript:
        context_.inNoscript = !isClosedTag(tag);
        return;
      case Element::Marquee:
        context_.inMarquee = !isClosedTag(tag);
        return;
      case Element::Textarea:
        context_.inTextarea = !isClosedTag(tag);
        return;
      case Element::Option:
        clearMarqueeAndTextarea();
        context_.inOption = !isClosedTag(tag);
        return;
      case Element::Select:
        clearMarqueeAndTextarea();
        context_.inOption = false;
        return;
      case Element::Head:
      case Element::Title:
      case Element::None:
        return;
    }
  }

  // The ALT (else TITLE) text of an image, set off by spaces.
  void appendImageText(const MarkupItem& item) {
    TextRange text = FindTagAttribute(item.units, item.tagRange(), "ALT", false);
    if (!text.found()) text = FindTagAttribute(item.units, item.tagRange(), "TITLE", false);
    if (text.found()) {
      context_.spacePending = true;
      appendTextRun(scratchCopy(item.units + text.location, text.length), text.length);
    }
    context_.spacePending = true;
  }

  void applyFontRule(const MarkupItem& item) {
    context_.junkFont = false;
    if (context_.bodyColour) {
      TextRange colour = FindTagAttribute(item.units, item.tagRange(), "COLOR", false);
      context_.junkFont =
          colour.found() && isEqualToStringNoCase(rangeText(item, colour), *context_.bodyColour);
    }
    if (!context_.junkFont) {
      TextRange style = FindTagAttribute(item.units, item.tagRange(), "STYLE", false);
      if (style.found()) {
        TextView text = rangeText(item, style);
        context_.junkFont =
            findNoCase(text, "font-size") != TextView::npos && hasTinyPointSize(text);
      }
    }
    TextRange className = FindTagAttribute(item.units, item.tagRange(), "CLASS", false);
    context_.feedDate = className.found() && rangeText(item, className) == u"feed_date";
  }

  // A font size of 1pt to 4pt.
  static bool hasTinyPointSize(TextView style) {
    for (std::size_t at = style.find(u"pt"); at != TextView::npos; at = style.find(u"pt", at + 1)) {
      if (at < 1 || style[at - 1] < u'1' || style[at - 1] > u'4') continue;
      if (at >= 2 && style[at - 2] >= u'0' && style[at - 2] <= u'9') continue;
      return true;
    }
    return false;
  }

  bool isHiddenElement(const MarkupItem& item) {
    TextRange className = FindTagAttribute(item.units, item.tagRange(), "CLASS", false);
    if (className.found() && isEqualToStringNoCase(rangeText(item, className), u"hidden")) {
      return true;
    }
    return isHiddenByStyle(item);
  }

  // Hidden by CSS, pushed off the page, or shrunk to a few pixels.
  bool isHiddenByStyle(const MarkupItem& item) {
    TextRange styleRange = FindTagAttribute(item.units, item.tagRange(), "STYLE", false);
    if (!styleRange.found()) return false;
    const TextView style = rangeText(item, styleRange);
    if (std::size_t at = style.find(u"visibility"); at != TextView::npos) {
      if (style.find(u"hidden", at + 10) != TextView::npos) return true;
    }
    if (std::size_t at = style.find(u"display:"); at != TextView::npos) {
      if (style.find(u"none", at + 8) != TextView::npos) return true;
    }
    if (findNoCase(style, "position:absolute") != TextView::npos) {
      for (std::string_view side : {"top", "left"}) {
        auto position = styleIntegerProperty(style, side);
        if (position && *position < kOffPagePosition) return true;
      }
    }
    if (item.tagLength < 10) return false;
    auto width = integerAttribute(item, "WIDTH");
    if (!width) width = styleIntegerProperty(style, "width");
    if (!width || *width <= 0) return false;
    if (*width <= 3) return true;
    auto height = integerAttribute(item, "HEIGHT");
    if (!height) height = integerAttribute(item, "HEIGH");
    if (!height) height = styleIntegerProperty(style, "height");
    return height && (*height < 0 || (*height >= 1 && *height <= 3));
  }

  std::optional<std::int64_t> integerAttribute(const MarkupItem& item, std::string_view name) {
    TextRange range = FindTagAttribute(item.units, item.tagRange(), name, false);
    if (!range.found()) return std::nullopt;
    return leadingInteger(rangeText(item, range));
  }

  static TextView rangeText(const MarkupItem& item, TextRange range) {
    return TextView(item.units + range.location, range.length);
  }

  std::optional<TextString> attribute(const MarkupItem& item, std::string_view name) {
    TextRange range = FindTagAttribute(item.units, item.tagRange(), name, false);
    if (!range.found()) return std::nullopt;
    return TextString(rangeText(item, range));
  }

  // googleon: / googleoff: comments switch the index, snippet and anchor bits.
  void updateGoogleState(const MarkupItem& item) {
    if (item.tagLength < kGoogleCommentMinimumLength) return;
    const TextView comment = item.tag();
    const bool on = findNoCase(comment, "googleon:") != TextView::npos;
    if (!on && findNoCase(comment, "googleoff:") == TextView::npos) return;
    unsigned bits = 0;
    if (findNoCase(comment, "all") != TextView::npos) {
      bits = kGoogleAll;
    } else {
      if (findNoCase(comment, "index") != TextView::npos) bits |= kGoogleIndex;
      if (findNoCase(comment, "snippet") != TextView::npos) bits |= kGoogleSnippet;
      if (findNoCase(comment, "anchor") != TextView::npos) bits |= kGoogleAnchor;
    }
    if (on) {
      context_.googleState |= bits;
    } else {
      context_.googleState &= ~bits;
    }
  }

  // Body text runs, each after one space; no element rules.
  void handleSimplifiedItem(const MarkupItem& item) {
    const std::size_t length = std::min(item.tagLocation - item.textLocation, room());
    if (context_.bodyDepth > 0 && length > 0) {
      char16_t* run = textRunUnits(item, length);
      std::size_t converted = length;
      if (length >= 4) {
        converted = ConvertEntitiesToCharacters(run, length, context_.standardEntities, false,
                                                context_.nonUmlauted);
      }
      if (converted > 0) {
        put(u' ');
        context_.output.append(run, converted);
        context_.produced = true;
      }
    }
    if (!item.hasName()) return;
    const TextView tag = item.tag();
    if (item.nameIs("body") || item.nameIs("noframes")) {
      context_.bodyDepth += depthChange(tag);
    } else if (item.nameIs("head")) {
      context_.bodyDepth -= depthChange(tag);
    }
  }

  const Html2TextSettings settings_;
  const bool simplified_;
  Html2TextContext context_;
  const CharacterSetRep& white_;
  const CharacterSetRep& blank_;
  const CharacterSetRep& alphaNumeric_;
  const ConversionTable upper_;
  const ConversionTable fold_;
  TextString scratch_;  // image texts, and runs when the scan has no writable copy
};

// The common driver: one scan, a second one for a fragment without a body.
TextString convertHtml2PlainText(const MarkupSource& html, const Html2TextSettings& settings,
                                 bool simplified, bool* didRemoveJunk) {
  if (didRemoveJunk) *didRemoveJunk = false;
  try {
    Html2TextConverter converter(settings, simplified, html.lengthHint());
    bool scanned = html.scan(converter);
    if (scanned && settings.onlyBody && !converter.context().produced) {
      converter.restartWithWholeDocument();
      scanned = html.scan(converter);
    }
    if (!scanned || !converter.context().produced) return html.wholeText();
    if (didRemoveJunk) *didRemoveJunk = converter.context().removedJunk;
    return converter.takeOutput();
  } catch (const std::bad_alloc&) {
    return html.wholeText();
  }
}

TextString convertHtml2PlainText(TextView html, const Html2TextSettings& settings, bool simplified,
                                 bool* didRemoveJunk) {
  return convertHtml2PlainText(WholeMarkup(html), settings, simplified, didRemoveJunk);
}

}  // namespace

TextString stringByConvertingHtml2PlainText(TextView html, const HtmlToTextOptions& options,
                                            bool* didRemoveJunk) {
  return convertHtml2PlainText(html, options, false, didRemoveJunk);
}

TextString stringByConvertingHtml2PlainText(const MarkupSource& html,
                                            const HtmlToTextOptions& options, bool* didRemoveJunk) {
  return convertHtml2PlainText(html, options, false, didRemoveJunk);
}

TextString stringByConvertingHtml2PlainTextEntities(TextView html, bool entities, bool stdEntities,
                                                    bool nonUmlauted, bool reformat, bool onlyBody,
                                                    bool removeJunk, bool* didRemoveJunk,
                                                    bool googleTags, bool imageAlts) {
  return stringByConvertingHtml2PlainText(html,
                                          {.entities = entities,
                                           .standardEntities = stdEntities,
                                           .nonUmlauted = nonUmlauted,
                                           .reformat = reformat,
                                           .onlyBody = onlyBody,
                                           .removeJunk = removeJunk,
                                           .googleTags = googleTags,
                                           .imageAlts = imageAlts},
                                          didRemoveJunk);
}

TextString stringByConvertingHtml2PlainTextNonUmlauted(TextView html, bool nonUmlauted,
                                                       bool reformat, bool onlyBody,
                                                       bool removeJunk, bool* didRemoveJunk,
                                                       bool googleTags, bool imageAlts) {
  return stringByConvertingHtml2PlainTextEntities(html, true, true, nonUmlauted, reformat, onlyBody,
                                                  removeJunk, didRemoveJunk, googleTags, imageAlts);
}

TextString stringByConvertingHtml2PlainTextNonUmlauted(TextView html, bool nonUmlauted,
                                                       bool reformat, bool onlyBody,
                                                       bool googleTags, bool imageAlts) {
  return stringByConvertingHtml2PlainTextEntities(html, true, true, nonUmlauted, reformat, onlyBody,
                                                  false, nullptr, googleTags, imageAlts);
}

TextString stringByConvertingHtml2PlainTextNonUmlauted(TextView html, bool nonUmlauted,
                                                       bool reformat, bool onlyBody,
                                                       bool googleTags) {
  return stringByConvertingHtml2PlainTextEntities(html, true, true, nonUmlauted, reformat, onlyBody,
                                                  false, nullptr, googleTags, true);
}

TextString stringByConvertingHtml2PlainTextNonUmlauted(TextView html, bool nonUmlauted) {
  return stringByConvertingHtml2PlainTextEntities(html, true, true, nonUmlauted, false, false,
                                                  false, nullptr, false, true);
}

TextString stringByConvertingHtml2ReformattedPlainText(TextView html) {
  return stringByConvertingHtml2PlainTextEntities(html, true, true, false, true, false, false,
                                                  nullptr, false, true);
}

TextString stringByConvertingHtml2PlainText(TextView html) {
  return stringByConvertingHtml2PlainTextEntities(html, true, true, false, false, false, false,
                                                  nullptr, false, true);
}

TextString stringByConvertingHtml2SimplifiedPlainText(TextView html) {
  return convertHtml2PlainText(html, {.onlyBody = true}, true, nullptr);
}

}  // namespace ulvek
