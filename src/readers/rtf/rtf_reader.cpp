#include "readers/rtf/rtf_reader.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <unordered_set>
#include <vector>

#include "base/ascii.h"
#include "base/deadline.h"
#include "platform/open_beneath.h"
#include "readers/xml/document_text.h"

namespace ulvek {
namespace {

// The destinations whose contents are not the document's text.
constexpr std::string_view kSkippedDestinations[] = {"fonttbl",
                                                     "colortbl",
                                                     "stylesheet",
                                                     "pict",
                                                     "object",
                                                     "header",
                                                     "headerl",
                                                     "headerr",
                                                     "headerf",
                                                     "footer",
                                                     "footerl",
                                                     "footerr",
                                                     "footerf",
                                                     "fldinst",
                                                     "revtbl",
                                                     "rsidtbl",
                                                     "generator",
                                                     "themedata",
                                                     "colorschememapping",
                                                     "datastore",
                                                     "latentstyles",
                                                     "pgdsctbl",
                                                     "bkmkstart",
                                                     "bkmkend",
                                                     "xmlnstbl",
                                                     "filetbl",
                                                     "pnseclvl",
                                                     "pntext",
                                                     "listtext",
                                                     "fldtype",
                                                     "nonshppict",
                                                     "shpinst",
                                                     "mmathPr",
                                                     "wgrffmtfilter",
                                                     "userprops",
                                                     "template",
                                                     "operator",
                                                     "company",
                                                     "category",
                                                     "manager",
                                                     "hlinkbase",
                                                     "docvar",
                                                     "falt",
                                                     "panose",
                                                     "levelnumbers",
                                                     "listname",
                                                     "xe",
                                                     "tc",
                                                     "blipuid",
                                                     "atnid",
                                                     "atnauthor",
                                                     "annotation",
                                                     "atrfstart",
                                                     "atrfend",
                                                     "comment",
                                                     "printim",
                                                     "buptim",
                                                     "version",
                                                     "edmins",
                                                     "nofpages",
                                                     "nofwords",
                                                     "nofchars",
                                                     "nofcharsws",
                                                     "vern",
                                                     "doccomment"};

// What an \info group's destination holds.
enum class Info {
  None,
  Title,
  Subject,
  Author,
  Keywords,
  Comment,
  Copyright,
  Creation,
  Modification
};

constexpr std::pair<std::string_view, Info> kInfoStrings[] = {
    {"title", Info::Title},       {"subject", Info::Subject}, {"author", Info::Author},
    {"keywords", Info::Keywords}, {"doccomm", Info::Comment}, {"copyright", Info::Copyright},
};

// Control words that stand for one character.
constexpr std::pair<std::string_view, char16_t> kSpecialCharacters[] = {
    {"emdash", u'\u2014'},  {"endash", u'\u2013'},    {"lquote", u'\u2018'},
    {"rquote", u'\u2019'},  {"ldblquote", u'\u201C'}, {"rdblquote", u'\u201D'},
    {"bullet", u'\u2022'},  {"enspace", u'\u2002'},   {"emspace", u'\u2003'},
    {"qmspace", u'\u2005'}, {"zwj", u'\u200D'},       {"zwnj", u'\u200C'},
    {"ltrmark", u'\u200E'}, {"rtlmark", u'\u200F'}};

// \fcharset values and the Windows code pages they mean.
constexpr std::pair<int, int> kCharsetCodePages[] = {
    {0, 1252},   {1, 1252},   {2, 1252},   {77, 10000}, {128, 932},  {129, 949},  {130, 1361},
    {134, 936},  {136, 950},  {161, 1253}, {162, 1254}, {163, 1258}, {177, 1255}, {178, 1256},
    {186, 1257}, {204, 1251}, {222, 874},  {238, 1250}, {255, 437}};

std::string converterName(int codePage) {
  switch (codePage) {
    case 10000:
      return "macintosh";
    case 932:
      return "Shift_JIS";
    case 936:
      return "GBK";
    case 949:
      return "windows-949";
    case 950:
      return "Big5";
    case 437:
      return "ibm-437";
    case 65001:
      return "UTF-8";
    default:
      return "windows-" + std::to_string(codePage);
  }
}

TextString decode(std::string_view bytes, int codePage) {
  if (bytes.empty()) return {};
  UErrorCode status = U_ZERO_ERROR;
  UConverter* converter = ucnv_open(converterName(codePage).c_str(), &status);
  if (U_FAILURE(status)) {
    status = U_ZERO_ERROR;
    converter = ucnv_open("windows-1252", &status);
  }
  TextString text(bytes.size() * 2 + 2, u'\0');
  int32_t length = ucnv_toUChars(converter, reinterpret_cast<UChar*>(text.data()),
                                 static_cast<int32_t>(text.size()), bytes.data(),
                                 static_cast<int32_t>(bytes.size()), &status);
  ucnv_close(converter);
  if (U_FAILURE(status)) return {};
  text.resize(static_cast<std::size_t>(length));
  return text;
}

// The groups of the list tables and of old-style paragraph numbering, whose words define lists.
enum class Capture { None, ListTable, LevelText, Overrides, Numbering, TextBefore, TextAfter };

// Old-style paragraph numbering (\pn): one level, its format and the text around the number.
struct ParagraphNumbering {
  ListLevel level;
  std::size_t depth = 0;
  TextString before, after;
};

// The list a paragraph belongs to, as \pard, \ls, \ilvl and \pn leave it.
struct ParagraphList {
  std::optional<long long> override;  // \ls
  std::size_t level = 0;              // \ilvl
  std::optional<ParagraphNumbering> numbering;
};

struct Group {
  Capture capture = Capture::None;
  ParagraphList list;
  bool skip = false;        // contents are not text
  bool skipAround = false;  // this group or one it is inside is skipped (the font table)
  int unicodeSkip = 1;      // \ucN: characters that follow a \u as its fallback
  int codePage = 1252;      // of the current font
  Info info = Info::None;   // the \info property being collected
  bool time = false;        // inside \creatim or \revtim
};

struct DateParts {
  int year = 0, month = 1, day = 1, hour = 0, minute = 0, second = 0;
};

std::optional<Date> dateOf(const DateParts& parts) {
  using namespace std::chrono;
  year_month_day date{std::chrono::year(parts.year), std::chrono::month(unsigned(parts.month)),
                      std::chrono::day(unsigned(parts.day))};
  if (parts.year < 1 || !date.ok()) return std::nullopt;
  long long seconds = sys_days(date).time_since_epoch().count() * 86400LL + parts.hour * 3600LL +
                      parts.minute * 60LL + parts.second;
  return Date{seconds * 1000000};
}

// Far deeper than any writer nests (tables, fields and lists reach a few dozen).
constexpr std::size_t kDeepestGroups = 1000;

class RTFParser {
 public:
  explicit RTFParser(std::string_view input) : input_(input) {}

  ReaderOutput parse() {
    groups_.push_back(Group{});
    while (at_ < input_.size()) {
      if (readingTimeIsUp()) break;
      char c = input_[at_];
      if (c == '{') {
        flushBytes();
        ++at_;
        if (groups_.size() < kDeepestGroups)
          groups_.push_back(Group(groups_.back()));
        else
          pastDeepest_.push_back({group().skip, group().skipAround});
        opened_ = true;
        ignorable_ = false;
        destinationStart_ = true;
      } else if (c == '}') {
        flushBytes();
        ++at_;
        if (!pastDeepest_.empty()) {
          group().skip = pastDeepest_.back().skip;
          group().skipAround = pastDeepest_.back().skipAround;
          pastDeepest_.pop_back();
        } else {
          endGroup();
        }
        // The document ends with its outermost group; what follows is not RTF.
        if (groups_.size() == 1 && opened_) break;
      } else if (c == '\\') {
        controlWord();
      } else if (c == '\r' || c == '\n') {
        ++at_;
      } else if (fallbackLeft_ == 0 && !expectTrail_ && static_cast<unsigned char>(c) < 0x80) {
        // A run of plain ASCII, taken whole: most of a document's bytes, and all of a skipped
        // group's (embedded pictures and objects in hex).
        std::size_t end = at_ + 1;
        while (end < input_.size() && isPlainAscii(input_[end])) ++end;
        destinationStart_ = false;
        if (!group().skip) {
          flushBytes();
          appendText(asciiRun(input_.substr(at_, end - at_)));
        }
        at_ = end;
      } else {
        ++at_;
        destinationStart_ = false;
        if (skipFallback()) continue;
        appendByte(c);
      }
    }
    flushBytes();
    output_.text = text_.take();
    return std::move(output_);
  }

 private:
  Group& group() { return groups_.back(); }

  void endGroup() {
    Group ended = groups_.back();
    if (groups_.size() > 1) groups_.pop_back();
    if (ended.capture != groups_.back().capture) endCapture(ended.capture);
    if (ended.info != Info::None && (groups_.back().info != ended.info)) finishInfo(ended);
  }

  void finishInfo(const Group& ended) {
    if (ended.time) {
      if (auto date = dateOf(dateParts_))
        (ended.info == Info::Creation ? output_.creation : output_.modification) = date;
      dateParts_ = {};
      return;
    }
    TextString value = infoText_;
    infoText_.clear();
    if (value.empty()) return;
    switch (ended.info) {
      case Info::Title:
        output_.title = std::move(value);
        break;
      case Info::Subject:
        output_.subject = std::move(value);
        break;
      case Info::Author:
        output_.authors = TextList{std::move(value)};
        break;
      case Info::Keywords:
        output_.keywords = keywordWords(toUtf8(value));
        break;
      case Info::Comment:
        output_.comment = std::move(value);
        break;
      case Info::Copyright:
        output_.copyright = std::move(value);
        break;
      default:
        break;
    }
  }

  // After \u, the fallback characters that follow are not text.
  bool skipFallback() {
    if (fallbackLeft_ == 0) return false;
    --fallbackLeft_;
    return true;
  }

  // Bytes with no meaning of their own to the parser, in a run of text.
  static bool isPlainAscii(char c) {
    return static_cast<unsigned char>(c) < 0x80 && c != '{' && c != '}' && c != '\\' && c != '\r' &&
           c != '\n';
  }

  // The run widened to units in a buffer kept between runs.
  TextView asciiRun(std::string_view run) {
    run_.assign(run.begin(), run.end());
    return run_;
  }

  static bool isDoubleByte(int codePage) {
    return codePage == 932 || codePage == 936 || codePage == 949 || codePage == 950 ||
           codePage == 1361;
  }

  void appendByte(char c) {
    if (group().skip) return;
    auto byte = static_cast<unsigned char>(c);
    // The second byte of a double-byte character may look like ASCII; it stays with its lead.
    if (expectTrail_) {
      expectTrail_ = false;
      pendingBytes_ += c;
      return;
    }
    if (byte >= 0x81 && isDoubleByte(group().codePage) &&
        !(group().codePage == 932 && byte >= 0xA0 && byte <= 0xDF))
      expectTrail_ = true;
    if (byte < 0x80) {
      flushBytes();
      appendText(TextString(1, static_cast<char16_t>(c)));
      return;
    }
    if (!pendingBytes_.empty() && pendingPage_ != group().codePage) flushBytes();
    pendingPage_ = group().codePage;
    pendingBytes_ += c;
  }

  void flushBytes() {
    if (pendingBytes_.empty()) return;
    TextString text = decode(pendingBytes_, pendingPage_);
    pendingBytes_.clear();
    appendText(text);
  }

  void appendText(TextView text) {
    if (group().skip || text.empty()) return;
    if (group().capture != Capture::None) {
      captureText(text);
      return;
    }
    if (group().info != Info::None) {
      if (!group().time) infoText_ += text;
      return;
    }
    startParagraphText();
    text_.writeText(text);
  }

  void appendCharacter(char16_t c) {
    flushBytes();
    if (group().skip) return;
    if (c == u'\n' || c == u'\t') {
      if (group().info == Info::None && group().capture == Capture::None) {
        startParagraphText();
        text_.character(c);
      }
      return;
    }
    appendText(TextString(1, c));
  }

  // Whether text here is the document's: not skipped, no property, no list definition.
  bool inBody() const {
    return !groups_.back().skip && groups_.back().info == Info::None &&
           groups_.back().capture == Capture::None;
  }

  void endParagraph() {
    flushBytes();
    paragraphStart_ = true;
  }

  // ---- Lists ----

  void captureText(TextView text) {
    switch (group().capture) {
      case Capture::LevelText:
        if (levelText_.size() < 256) levelText_ += text;
        return;
      case Capture::TextBefore:
        if (numbering_.before.size() < 64) numbering_.before += text;
        return;
      case Capture::TextAfter:
        if (numbering_.after.size() < 64) numbering_.after += text;
        return;
      default:
        return;
    }
  }

  void endCapture(Capture ended) {
    if (ended == Capture::LevelText && definedLevels_ > 0) {
      // The first character counts those of the label that follow.
      ListLevel& level = definedList_[definedLevels_ - 1];
      std::size_t length = levelText_.empty() ? 0 : levelText_[0];
      level.pattern = levelText_.substr(std::min<std::size_t>(1, levelText_.size()), length);
    } else if (ended == Capture::Numbering) {
      group().list.numbering = numbering_;
    }
  }

  // The words of the list table, the list overrides and \pn; true when `word` was one of them.
  bool listWord(std::string_view word, std::optional<long long> parameter) {
    long long value = parameter.value_or(0);
    Group& at = group();
    if (word == "listtable" || word == "listoverridetable" || word == "pn") {
      at.capture = word == "listtable"           ? Capture::ListTable
                   : word == "listoverridetable" ? Capture::Overrides
                                                 : Capture::Numbering;
      if (word == "pn") numbering_ = {};
      return true;
    }
    if (at.capture == Capture::ListTable) {
      ListLevel* level = definedLevels_ > 0 ? &definedList_[definedLevels_ - 1] : nullptr;
      if (word == "list") {
        definedList_ = {}, definedLevels_ = 0;
      } else if (word == "listlevel" && definedLevels_ < kListLevels) {
        definedList_[definedLevels_++] = ListLevel{};
      } else if ((word == "levelnfc" || word == "levelnfcn") && level) {
        level->kind = value == 23    ? ListLevel::Kind::Bullet
                      : value == 255 ? ListLevel::Kind::None
                                     : ListLevel::Kind::Number;
        level->format = wordNumberFormat(value);
      } else if (word == "levelstartat" && level) {
        level->start = static_cast<int>(std::clamp<long long>(value, 0, 1000000));
      } else if (word == "levellegal" && level) {
        level->legal = parameter.value_or(1) != 0;
      } else if (word == "leveltext") {
        at.capture = Capture::LevelText;
        levelText_.clear();
      } else if (word == "listid") {
        lists_[value] = {definedList_, definedLevels_};
      }
      return true;
    }
    if (at.capture == Capture::Overrides) {
      if (word == "listid") overrideList_ = value;
      if (word == "ls") overrides_[value] = overrideList_;
      return true;
    }
    if (at.capture == Capture::Numbering) {
      ListLevel& level = numbering_.level;
      if (word == "pnlvlblt") {
        level.kind = ListLevel::Kind::Bullet;
      } else if (word == "pnlvl") {
        numbering_.depth = static_cast<std::size_t>(std::clamp<long long>(value - 1, 0, 8));
      } else if (word == "pnstart") {
        level.start = static_cast<int>(std::clamp<long long>(value, 0, 1000000));
      } else if (word == "pntxtb" || word == "pntxta") {
        at.capture = word == "pntxtb" ? Capture::TextBefore : Capture::TextAfter;
      } else {
        static const std::pair<std::string_view, ListNumberFormat> kFormats[] = {
            {"pndec", ListNumberFormat::Decimal},
            {"pnucltr", ListNumberFormat::UpperLetter},
            {"pnlcltr", ListNumberFormat::LowerLetter},
            {"pnucrm", ListNumberFormat::UpperRoman},
            {"pnlcrm", ListNumberFormat::LowerRoman}};
        for (const auto& [name, format] : kFormats)
          if (word == name) level.format = format;
      }
      return true;
    }
    if (at.skip || at.info != Info::None) return false;
    if (word == "pard") {
      at.list = {};
      return true;
    }
    if (word == "ls") {
      at.list.override = value;
      return true;
    }
    if (word == "ilvl") {
      at.list.level = static_cast<std::size_t>(std::clamp<long long>(value, 0, 8));
      return true;
    }
    return false;
  }

  // A list paragraph's label goes before its first text, as the list counts it.
  void startParagraphText() {
    if (!paragraphStart_) return;
    paragraphStart_ = false;
    const ParagraphList& list = group().list;
    // Old-style numbering counts on over paragraphs numbered alike, and starts again after others.
    bool numberingGoesOn = list.numbering && lastNumbering_ &&
                           lastNumbering_->kind == list.numbering->level.kind &&
                           lastNumbering_->format == list.numbering->level.format;
    if (list.numbering)
      lastNumbering_ = list.numbering->level;
    else
      lastNumbering_.reset();
    if (list.override) {
      auto override = overrides_.find(*list.override);
      if (override == overrides_.end()) return;
      auto defined = lists_.find(override->second);
      if (defined == lists_.end() || defined->second.count == 0) return;
      // A simple list has one level, which every level uses.
      std::size_t level = list.level < defined->second.count ? list.level : 0;
      ListCounters& counters = counters_[override->second];
      text_.writeText(listLabelPrefix(counters.next(defined->second.levels, level), level));
    } else if (list.numbering) {
      const ParagraphNumbering& numbering = *list.numbering;
      ListLevel& level = numberingLevels_[numbering.depth];
      level = numbering.level;
      level.pattern = numbering.before + char16_t(numbering.depth) + numbering.after;
      if (!numberingGoesOn) numberingCounters_.restart(numbering.depth, level.start);
      text_.writeText(listLabelPrefix(numberingCounters_.next(numberingLevels_, numbering.depth),
                                      numbering.depth));
    }
  }

  void controlWord() {
    ++at_;  // the backslash
    if (at_ >= input_.size()) return;
    char c = input_[at_];
    if (!isAsciiLetter(c)) {
      ++at_;
      controlSymbol(c);
      return;
    }
    std::size_t start = at_;
    while (at_ < input_.size() && isAsciiLetter(input_[at_]) && at_ - start < 32) ++at_;
    std::string_view word = input_.substr(start, at_ - start);
    std::optional<long long> parameter;
    bool negative = at_ < input_.size() && input_[at_] == '-';
    if (negative) ++at_;
    if (at_ < input_.size() && isAsciiDigit(input_[at_])) {
      long long value = 0;
      while (at_ < input_.size() && isAsciiDigit(input_[at_])) {
        if (value < 1000000000000LL) value = value * 10 + (input_[at_] - '0');
        ++at_;
      }
      parameter = negative ? -value : value;
    }
    if (at_ < input_.size() && input_[at_] == ' ') ++at_;
    bool first = destinationStart_;
    destinationStart_ = false;
    apply(word, parameter, first);
  }

  void controlSymbol(char c) {
    destinationStart_ = false;
    switch (c) {
      case '*':
        ignorable_ = true;
        destinationStart_ = true;
        return;
      case '\'': {
        // Two hex digits name a byte; anything else is no byte, and what follows is read as is.
        if (at_ + 2 > input_.size()) return;
        const int high = hexDigitValue(static_cast<unsigned char>(input_[at_]));
        const int low = hexDigitValue(static_cast<unsigned char>(input_[at_ + 1]));
        if (high < 0 || low < 0) return;
        const int value = high * 16 + low;
        at_ += 2;
        if (skipFallback()) return;
        appendByte(static_cast<char>(value));
        return;
      }
      case '~':
        appendCharacter(u'\u00A0');
        return;
      case '_':
        appendCharacter(u'\u2011');
        return;
      case '-':
        appendCharacter(u'\u00AD');
        return;  // an optional hyphen
      case '\n':
      case '\r':
        appendCharacter(u'\n');
        return;
      case '\\':
      case '{':
      case '}':
        if (skipFallback()) return;
        appendCharacter(static_cast<char16_t>(c));
        return;
      default:
        return;
    }
  }

  // The control words apply() acts on; every other one only formats.
  static bool isActedOn(std::string_view word) {
    static const std::unordered_set<std::string_view> kWords = [] {
      std::unordered_set<std::string_view> words(std::begin(kSkippedDestinations),
                                                 std::end(kSkippedDestinations));
      for (const auto& [destination, attribute] : kInfoStrings) words.insert(destination);
      for (const auto& [special, character] : kSpecialCharacters) words.insert(special);
      for (std::string_view word : {"copyright",    "fldrslt",    "result",    "fldinst",
                                    "info",         "ud",         "upr",       "creatim",
                                    "revtim",       "yr",         "mo",        "dy",
                                    "hr",           "min",        "sec",       "ansicpg",
                                    "mac",          "f",          "fcharset",  "cpg",
                                    "bin",          "uc",         "u",         "fonttbl",
                                    "par",          "sect",       "page",      "row",
                                    "nestrow",      "cell",       "nestcell",  "line",
                                    "softline",     "tab",        "listtable", "listoverridetable",
                                    "list",         "listlevel",  "levelnfc",  "levelnfcn",
                                    "levelstartat", "levellegal", "leveltext", "listid",
                                    "ls",           "ilvl",       "pard",      "pn",
                                    "pnlvlblt",     "pnlvlbody",  "pnlvl",     "pnstart",
                                    "pntxtb",       "pntxta",     "pndec",     "pnucltr",
                                    "pnlcltr",      "pnucrm",     "pnlcrm"})
        words.insert(word);
      return words;
    }();
    return kWords.contains(word);
  }

  void apply(std::string_view word, std::optional<long long> parameter, bool first) {
    if (!isActedOn(word)) {
      // An ignorable destination we do not know: not text.
      if (ignorable_ && first) {
        flushBytes();
        skipGroup();
      }
      ignorable_ = false;
      return;
    }
    long long value = parameter.value_or(0);
    if (listWord(word, parameter)) {
      ignorable_ = false;
      return;
    }
    // A destination: text of its own, or none.
    for (std::string_view skipped : kSkippedDestinations) {
      if (word == skipped) {
        flushBytes();
        skipGroup();
        return;
      }
    }
    if (ignorable_ && first && word != "copyright" && word != "fldrslt" && word != "result") {
      // An ignorable destination we do not know: not text.
      if (!isKnownDestination(word)) {
        flushBytes();
        skipGroup();
        ignorable_ = false;
        return;
      }
    }
    ignorable_ = false;
    if (word == "info") {
      flushBytes();
      return;
    }
    for (const auto& [destination, attribute] : kInfoStrings) {
      if (word == destination) {
        flushBytes();
        group().info = attribute;
        infoText_.clear();
        return;
      }
    }
    if (word == "creatim" || word == "revtim") {
      flushBytes();
      group().info = word == "creatim" ? Info::Creation : Info::Modification;
      group().time = true;
      dateParts_ = {};
      return;
    }
    if (group().time) {
      int v = static_cast<int>(std::clamp<long long>(value, 0, 9999));
      if (word == "yr")
        dateParts_.year = v;
      else if (word == "mo")
        dateParts_.month = v;
      else if (word == "dy")
        dateParts_.day = v;
      else if (word == "hr")
        dateParts_.hour = v;
      else if (word == "min")
        dateParts_.minute = v;
      else if (word == "sec")
        dateParts_.second = v;
      return;
    }
    // A field's result is text where the field is; an object's result where the object is.
    if (word == "fldrslt") return;
    if (word == "result") {
      if (groups_.size() >= 3) {
        group().skip = groups_[groups_.size() - 3].skip;
        group().skipAround = group().skip || groups_[groups_.size() - 2].skipAround;
      }
      return;
    }
    if (word == "ansicpg" && parameter) {
      defaultCodePage_ = static_cast<int>(value);
      group().codePage = defaultCodePage_;
      return;
    }
    if (word == "mac") {
      defaultCodePage_ = 10000;
      group().codePage = 10000;
      return;
    }
    if (word == "f" && parameter) {
      if (inFontTable()) {
        currentFont_ = static_cast<int>(value);
        return;
      }
      auto font = fontPages_.find(static_cast<int>(value));
      group().codePage = font == fontPages_.end() ? defaultCodePage_ : font->second;
      return;
    }
    if (word == "fcharset" && parameter) {
      for (const auto& [charset, page] : kCharsetCodePages)
        if (charset == value) fontPages_[currentFont_] = page;
      return;
    }
    if (word == "cpg" && parameter && value > 0) {
      fontPages_[currentFont_] = static_cast<int>(value);
      return;
    }
    if (word == "bin" && parameter) {
      flushBytes();
      at_ += static_cast<std::size_t>(std::clamp<long long>(value, 0, input_.size() - at_));
      return;
    }
    if (word == "uc" && parameter) {
      group().unicodeSkip = static_cast<int>(std::clamp<long long>(value, 0, 16));
      return;
    }
    if (word == "u" && parameter) {
      long long unit = value < 0 ? value + 65536 : value;
      if (unit >= 0 && unit <= 0xFFFF) appendCharacter(static_cast<char16_t>(unit));
      fallbackLeft_ = group().unicodeSkip;
      return;
    }
    if (word == "fonttbl") return;
    if (word == "par" || word == "sect" || word == "page" || word == "row" || word == "nestrow") {
      flushBytes();
      if (inBody()) text_.paragraph(), endParagraph();
      return;
    }
    if (word == "cell" || word == "nestcell") {
      flushBytes();
      if (inBody()) text_.cell(), endParagraph();
      return;
    }
    if (word == "line" || word == "softline") {
      appendCharacter(u'\n');
      return;
    }
    if (word == "tab") {
      appendCharacter(u'\t');
      return;
    }
    for (const auto& [special, character] : kSpecialCharacters) {
      if (word == special) {
        appendCharacter(character);
        return;
      }
    }
  }

  // Ignorable destinations whose contents matter: the Unicode forms of \info strings (\ud).
  static bool isKnownDestination(std::string_view word) {
    return word == "fldinst" || word == "info" || word == "ud" || word == "upr";
  }

  void skipGroup() {
    group().skip = true;
    group().skipAround = true;
  }

  // Kept with each group rather than searched for: a search per \f is quadratic in the nesting.
  bool inFontTable() const { return groups_.back().skipAround; }

  std::string_view input_;
  std::size_t at_ = 0;
  std::vector<Group> groups_;
  // Groups opened deeper than kDeepestGroups share the deepest group's state, but for whether
  // their text is skipped, which each keeps in a byte: a hostile nesting costs little memory.
  struct Skipping {
    bool skip : 1;
    bool skipAround : 1;
  };
  std::vector<Skipping> pastDeepest_;
  DocumentText text_;
  ReaderOutput output_{.convention = Convention::AttributedDocument,
                       .documentType = kRTFTextDocumentType};
  TextString infoText_;
  DateParts dateParts_;
  std::string pendingBytes_;
  int pendingPage_ = 1252;
  int defaultCodePage_ = 1252;
  int currentFont_ = 0;
  std::map<int, int> fontPages_;
  int fallbackLeft_ = 0;
  bool expectTrail_ = false;
  TextString run_;  // the last run of plain ASCII, as units
  struct DefinedList {
    std::array<ListLevel, kListLevels> levels;
    std::size_t count = 0;
  };
  std::map<long long, DefinedList> lists_;      // by \listid
  std::map<long long, long long> overrides_;    // \ls → \listid
  std::map<long long, ListCounters> counters_;  // by \listid
  std::array<ListLevel, kListLevels> definedList_;
  std::size_t definedLevels_ = 0;
  long long overrideList_ = 0;
  TextString levelText_;
  ParagraphNumbering numbering_;  // the \pn being read
  std::array<ListLevel, kListLevels> numberingLevels_;
  ListCounters numberingCounters_;
  std::optional<ListLevel> lastNumbering_;  // of the last paragraph, when numbered old-style
  bool paragraphStart_ = true;
  bool opened_ = false;
  bool ignorable_ = false;
  bool destinationStart_ = false;
};

std::string_view asText(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

bool looksLikeRTF(Bytes bytes, std::string_view) {
  std::string_view text = asText(bytes);
  std::size_t start = text.find_first_not_of(" \t\r\n");
  return start != std::string_view::npos && text.substr(start).starts_with("{\\rtf");
}

std::optional<ReaderOutput> readRTFBytes(Bytes bytes) {
  if (!looksLikeRTF(bytes, {})) return std::nullopt;
  return RTFParser(asText(bytes)).parse();
}

std::optional<ReaderOutput> readRTF(const ReaderSource& source) {
  std::optional<Bytes> bytes = source.bytes();
  if (!bytes) return std::nullopt;
  return readRTFBytes(*bytes);
}

bool looksLikeRTFD(Bytes, std::string_view) { return false; }

std::optional<ReaderOutput> readRTFD(const ReaderSource& source) {
  if (!source.isFile()) return std::nullopt;
  std::error_code error;
  if (!std::filesystem::is_directory(source.path(), error)) return std::nullopt;
  // Only the package's own TXT.rtf: a link there could name any file of the user's.
  std::optional<FileBytes> text = readFileBeneath(source.path(), "TXT.rtf").take();
  if (!text) return std::nullopt;
  std::optional<ReaderOutput> output = readRTFBytes(text->bytes());
  if (output) output->documentType = kRTFDTextDocumentType;
  return output;
}

}  // namespace ulvek
