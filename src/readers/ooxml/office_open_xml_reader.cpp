#include "readers/ooxml/office_open_xml_reader.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string>

#include "base/failure.h"
#include "base/log.h"
#include "readers/xml/document_text.h"
#include "readers/xml/xml_events.h"
#include "readers/zip/zip_archive.h"

namespace ulvek {
namespace {

std::string_view asText(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string_view asText(const Data& bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// What a paragraph says of its list: its style, and the list and level it names itself.
struct ParagraphNumbering {
  std::string style;
  std::optional<std::string> numID;
  std::optional<int> level;
};

// List labels as numbering.xml and the paragraph styles define them. Lists of one abstract
// definition count together; a list that overrides a level's start restarts it where it is
// first used.
class Numbering {
 public:
  void readNumbering(std::string_view xml) {
    std::string abstractID, numID;
    std::array<ListLevel, kListLevels>* levels = nullptr;
    int level = -1, overrideLevel = -1;
    XmlEvents events{[&](std::string_view name, const char** attributes) {
                       std::string value = attribute(attributes, "w:val");
                       if (name == "w:abstractNum") {
                         abstractID = attribute(attributes, "w:abstractNumId");
                         levels = &abstracts_[abstractID].levels;
                       } else if (name == "w:num") {
                         numID = attribute(attributes, "w:numId");
                         levels = nullptr;
                       } else if (name == "w:abstractNumId" && !numID.empty()) {
                         lists_[numID].abstractID = value;
                       } else if (name == "w:numStyleLink" && !abstractID.empty()) {
                         abstracts_[abstractID].styleLink = value;
                       } else if (name == "w:lvlOverride" && !numID.empty()) {
                         overrideLevel = number(attribute(attributes, "w:ilvl"));
                       } else if (name == "w:startOverride" && inRange(overrideLevel)) {
                         lists_[numID].starts[std::size_t(overrideLevel)] = number(value);
                       } else if (name == "w:lvl") {
                         level = number(attribute(attributes, "w:ilvl"));
                         if (!numID.empty() && inRange(overrideLevel)) {
                           List& list = lists_[numID];
                           level = overrideLevel;
                           list.overridden[std::size_t(level)] = true;
                           levels = &list.levels;
                         }
                       } else if (levels && inRange(level)) {
                         readLevel(name, value, (*levels)[std::size_t(level)]);
                         if (name == "w:pStyle" && !abstractID.empty() && numID.empty())
                           abstracts_[abstractID].styleLevels[value] = level;
                       }
                     },
                     [&](std::string_view name) {
                       if (name == "w:lvl")
                         level = -1;
                       else if (name == "w:lvlOverride")
                         overrideLevel = -1;
                       else if (name == "w:abstractNum")
                         abstractID.clear(), levels = nullptr;
                       else if (name == "w:num")
                         numID.clear(), levels = nullptr;
                     },
                     nullptr};
    parseXml(xml, events);
  }

  // The paragraph styles' lists, following the styles they are based on.
  void readStyles(std::string_view xml) {
    std::string id;
    XmlEvents events{[&](std::string_view name, const char** attributes) {
                       std::string value = attribute(attributes, "w:val");
                       if (name == "w:style") {
                         id = attribute(attributes, "w:styleId");
                         if (attribute(attributes, "w:default") == "1" &&
                             attribute(attributes, "w:type") == "paragraph")
                           defaultStyle_ = id;
                       } else if (id.empty()) {
                         return;
                       } else if (name == "w:basedOn") {
                         styles_[id].basedOn = value;
                       } else if (name == "w:numId") {
                         styles_[id].numID = value;
                       } else if (name == "w:ilvl") {
                         styles_[id].level = number(value);
                       }
                     },
                     [&](std::string_view name) {
                       if (name == "w:style") id.clear();
                     },
                     nullptr};
    parseXml(xml, events);
  }

  // The label the paragraph starts with, as its prefix; empty for none.
  TextString next(const ParagraphNumbering& paragraph) {
    std::string styleID = paragraph.style.empty() ? defaultStyle_ : paragraph.style;
    Style style = resolved(styleID);
    std::string numID = paragraph.numID.value_or(style.numID);
    auto list = lists_.find(numID);
    if (numID.empty() || numID == "0" || list == lists_.end()) return {};
    std::string abstractID = linkedAbstract(list->second.abstractID);
    auto abstract = abstracts_.find(abstractID);
    if (abstract == abstracts_.end()) return {};
    int level = paragraph.level.value_or(style.level.value_or(-1));
    if (level < 0) {
      auto linked = abstract->second.styleLevels.find(styleID);
      level = linked == abstract->second.styleLevels.end() ? 0 : linked->second;
    }
    if (!inRange(level)) return {};
    std::array<ListLevel, kListLevels> levels = abstract->second.levels;
    List& own = list->second;
    for (std::size_t i = 0; i < kListLevels; ++i)
      if (own.overridden[i]) levels[i] = own.levels[i];
    ListCounters& counters = counters_[abstractID];
    if (!own.used) {
      own.used = true;
      for (std::size_t i = 0; i < kListLevels; ++i)
        if (own.starts[i]) counters.restart(i, *own.starts[i]);
    }
    auto at = static_cast<std::size_t>(level);
    return listLabelPrefix(counters.next(levels, at), at);
  }

 private:
  struct Abstract {
    std::array<ListLevel, kListLevels> levels;
    std::map<std::string, int> styleLevels;  // paragraph style → the level it stands for
    std::string styleLink;                   // a numbering style that holds the definition
  };
  struct List {
    std::string abstractID;
    std::array<std::optional<int>, kListLevels> starts;
    std::array<ListLevel, kListLevels> levels;
    std::array<bool, kListLevels> overridden{};
    bool used = false;
  };
  struct Style {
    std::string basedOn;
    std::string numID;
    std::optional<int> level;
  };

  static std::string attribute(const char** attributes, const char* key) {
    const char* found = xmlAttribute(attributes, key);
    return found ? found : "";
  }
  static int number(const std::string& text) {
    return static_cast<int>(std::clamp(std::atol(text.c_str()), -1L, 1000000L));
  }
  static bool inRange(int level) { return level >= 0 && level < int(kListLevels); }

  static void readLevel(std::string_view name, const std::string& value, ListLevel& level) {
    if (name == "w:start") {
      level.start = number(value);
    } else if (name == "w:numFmt") {
      static const std::pair<std::string_view, ListNumberFormat> kFormats[] = {
          {"lowerLetter", ListNumberFormat::LowerLetter},
          {"upperLetter", ListNumberFormat::UpperLetter},
          {"lowerRoman", ListNumberFormat::LowerRoman},
          {"upperRoman", ListNumberFormat::UpperRoman}};
      level.kind = value == "bullet" ? ListLevel::Kind::Bullet
                   : value == "none" ? ListLevel::Kind::None
                                     : ListLevel::Kind::Number;
      level.format = ListNumberFormat::Decimal;
      for (const auto& [kind, format] : kFormats)
        if (value == kind) level.format = format;
    } else if (name == "w:lvlText") {
      // "%1.%2)": the numbers of levels 1 and 2 in their places.
      TextString text = fromUtf8(value);
      level.pattern.clear();
      for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == u'%' && i + 1 < text.size() && text[i + 1] >= u'1' && text[i + 1] <= u'9')
          level.pattern += char16_t(text[++i] - u'1');
        else
          level.pattern += text[i];
      }
    } else if (name == "w:isLgl") {
      level.legal = value != "0" && value != "false";
    }
  }

  // A style with what the styles it is based on say, its own words first.
  Style resolved(const std::string& id) const {
    Style answer;
    std::string at = id;
    for (int depth = 0; depth < 16 && !at.empty(); ++depth) {
      auto style = styles_.find(at);
      if (style == styles_.end()) break;
      if (answer.numID.empty()) answer.numID = style->second.numID;
      if (!answer.level) answer.level = style->second.level;
      at = style->second.basedOn;
    }
    return answer;
  }

  // A definition that only names a numbering style stands for that style's list's definition.
  std::string linkedAbstract(const std::string& abstractID) const {
    auto abstract = abstracts_.find(abstractID);
    if (abstract == abstracts_.end() || abstract->second.styleLink.empty()) return abstractID;
    auto list = lists_.find(resolved(abstract->second.styleLink).numID);
    return list == lists_.end() ? abstractID : list->second.abstractID;
  }

  std::map<std::string, Abstract> abstracts_;
  std::map<std::string, List> lists_;  // by numId
  std::map<std::string, Style> styles_;
  std::map<std::string, ListCounters> counters_;  // by abstractNumId
  std::string defaultStyle_;
};

// The text of WordprocessingML: the elements DOCX and Word 2003 XML share.
class WordText {
 public:
  explicit WordText(DocumentText& out, Numbering* numbering = nullptr)
      : out_(out), numbering_(numbering) {}

  XmlEvents events() {
    return {[this](std::string_view name, const char** attributes) { start(name, attributes); },
            [this](std::string_view name) { end(name); },
            [this](std::string_view text) {
              if (inText_ && skipping_ == 0) out_.write(text);
            }};
  }

 private:
  // Elements whose text is not the document's: deleted runs, field instructions, the fallback
  // copy of drawings, the separators of notes, tab stops and earlier paragraph properties.
  static bool skipped(std::string_view name) {
    return name == "w:del" || name == "w:instrText" || name == "w:delText" ||
           name == "mc:Fallback" || name == "w:fldData" || name == "w:rPr" || name == "w:rt" ||
           name == "w:sectPr" || name == "w:pPrChange" || name == "w:tabs";
  }

  void start(std::string_view name, const char** attributes) {
    if (skipping_ > 0 || skipped(name)) {
      ++skipping_;
      return;
    }
    if (name == "w:footnote" || name == "w:endnote") {
      const char* type = xmlAttribute(attributes, "w:type");
      if (type && std::string_view(type) != "normal") ++skipping_;
      return;
    }
    if (name == "w:t")
      inText_ = true;
    else if (name == "w:p") {
      // A cell's first paragraph stays in the cell.
      if (!cellStarted_) out_.paragraph();
      cellStarted_ = false;
      paragraph_ = {};
    } else if (name == "w:pStyle") {
      const char* value = xmlAttribute(attributes, "w:val");
      paragraph_.style = value ? value : "";
    } else if (name == "w:numId") {
      const char* value = xmlAttribute(attributes, "w:val");
      paragraph_.numID = value ? value : "";
    } else if (name == "w:ilvl") {
      const char* value = xmlAttribute(attributes, "w:val");
      paragraph_.level = value ? std::atoi(value) : 0;
    } else if (name == "w:footnoteReference") {
      // The note's mark stands where the note is called, as Word shows it.
      out_.write(std::to_string(++footnotes_));
    } else if (name == "w:softHyphen") {
      out_.character(u'\u00AD');
    } else if (name == "w:tab" || name == "w:ptab")
      out_.character(u'\t');
    else if (name == "w:br" || name == "w:cr")
      out_.character(u'\n');
    else if (name == "w:noBreakHyphen")
      out_.character(u'\u2011');
    else if (name == "w:tc") {
      out_.cell();
      cellStarted_ = true;
    } else if (name == "w:tr")
      out_.paragraph();
  }

  void end(std::string_view name) {
    if (skipping_ > 0) {
      --skipping_;
      return;
    }
    if (name == "w:t")
      inText_ = false;
    else if (name == "w:tbl")
      out_.paragraph();
    else if (name == "w:pPr" && numbering_)
      out_.writeText(numbering_->next(paragraph_));
  }

  DocumentText& out_;
  Numbering* numbering_;
  bool inText_ = false;
  bool cellStarted_ = false;
  int skipping_ = 0;
  ParagraphNumbering paragraph_;
  int footnotes_ = 0;
};

// docProps/core.xml, or Word 2003 XML's o:DocumentProperties.
void readProperties(std::string_view xml, ReaderOutput& output) {
  std::string text;
  XmlEvents events{[&](std::string_view, const char**) { text.clear(); },
                   [&](std::string_view name) {
                     if (text.empty()) return;
                     if (name == "dc:title" || name == "o:Title") {
                       setOnce(output.title, fromUtf8(text));
                     } else if (name == "dc:subject" || name == "o:Subject") {
                       setOnce(output.subject, fromUtf8(text));
                     } else if (name == "dc:creator" || name == "o:Author") {
                       setOnce(output.authors, TextList{fromUtf8(text)});
                     } else if (name == "cp:keywords" || name == "o:Keywords") {
                       setOnce(output.keywords, keywordList(text));
                     } else if (name == "dc:description" || name == "o:Description") {
                       setOnce(output.comment, fromUtf8(text));
                     } else if (name == "dcterms:created" || name == "o:Created") {
                       setOnce(output.creation, w3cDate(text));
                     } else if (name == "dcterms:modified" || name == "o:LastSaved") {
                       setOnce(output.modification, w3cDate(text));
                     }
                     text.clear();
                   },
                   [&](std::string_view chunk) { text.append(chunk); }};
  parseXml(xml, events);
}

ReaderOutput output(TextString text, std::u16string_view type) {
  return ReaderOutput{
      .convention = Convention::AttributedDocument, .text = std::move(text), .documentType = type};
}

bool contains(Bytes bytes, std::string_view part, std::size_t within) {
  std::string_view text = asText(bytes);
  return text.substr(0, within).find(part) != std::string_view::npos;
}

}  // namespace

bool looksLikeOfficeOpenXML(Bytes bytes, std::string_view extension) {
  // Member names stand uncompressed in the local headers.
  return asText(bytes).starts_with("PK\x03\x04") &&
         contains(bytes, "word/document.xml", bytes.size());
}

std::optional<ReaderOutput> readOfficeOpenXML(const ReaderSource& source) {
  std::optional<Bytes> bytes = source.bytes();
  if (!bytes) return std::nullopt;
  std::string name = source.isFile() ? source.path() : std::string(source.name());
  std::unique_ptr<ZipArchive> archive = ZipArchive::initWithData(*bytes, name);
  if (!archive) return std::nullopt;
  std::optional<Data> document = archive->dataForNamedFile("word/document.xml");
  if (!document) return std::nullopt;
  Numbering numbering;
  if (archive->testForNamedFile("word/numbering.xml")) {
    if (std::optional<Data> xml = archive->dataForNamedFile("word/numbering.xml"))
      numbering.readNumbering(asText(*xml));
  }
  if (archive->testForNamedFile("word/styles.xml")) {
    if (std::optional<Data> xml = archive->dataForNamedFile("word/styles.xml"))
      numbering.readStyles(asText(*xml));
  }
  DocumentText text;
  WordText body(text, &numbering);
  if (!parseXml(asText(*document), body.events()))
    logFailure(FailureKind::Damaged, "Damaged document: " + name);
  // Notes after the body, as a reader meets them at the end.
  for (const char* notes : {"word/footnotes.xml", "word/endnotes.xml"}) {
    if (!archive->testForNamedFile(notes)) continue;
    if (std::optional<Data> xml = archive->dataForNamedFile(notes)) {
      text.paragraph();
      WordText part(text);
      parseXml(asText(*xml), part.events());
    }
  }
  ReaderOutput answer = output(text.take(), kOfficeOpenXMLTextDocumentType);
  if (archive->testForNamedFile("docProps/core.xml")) {
    if (std::optional<Data> core = archive->dataForNamedFile("docProps/core.xml"))
      readProperties(asText(*core), answer);
  }
  return answer;
}

bool looksLikeWordML(Bytes bytes, std::string_view extension) {
  return contains(bytes, "<w:wordDocument", 4096) ||
         contains(bytes, "progid=\"Word.Document\"", 4096);
}

std::optional<ReaderOutput> readWordML(const ReaderSource& source) {
  std::optional<Bytes> bytes = source.bytes();
  if (!bytes) return std::nullopt;
  DocumentText text;
  WordText body(text);
  if (!parseXml(asText(*bytes), body.events()))
    logFailure(
        FailureKind::Damaged,
        "Damaged document: " + (source.isFile() ? source.path() : std::string(source.name())));
  ReaderOutput document = output(text.take(), kWordMLTextDocumentType);
  readProperties(asText(*bytes), document);
  return document;
}

}  // namespace ulvek
