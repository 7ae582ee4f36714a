#include "readers/ooxml/office_open_xml_reader.h"

#include <algorithm>
#include <array>
#include <map>
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

// List labels as numbering.xml defines them: per list, a counter for each of nine levels.
class Numbering {
 public:
  void read(std::string_view xml) {
    std::string abstractID, numID;
    int level = -1;
    XmlEvents events{[&](std::string_view name, const char** attributes) {
                       auto value = [&](const char* key) {
                         const char* found = xmlAttribute(attributes, key);
                         return std::string(found ? found : "");
                       };
                       if (name == "w:abstractNum")
                         abstractID = value("w:abstractNumId");
                       else if (name == "w:lvl")
                         level = std::atoi(value("w:ilvl").c_str());
                       else if (name == "w:num")
                         numID = value("w:numId");
                       else if (name == "w:abstractNumId" && !numID.empty())
                         lists_[numID] = value("w:val");
                       else if (level >= 0 && level < 9 && !abstractID.empty()) {
                         Level& format = formats_[abstractID][static_cast<std::size_t>(level)];
                         if (name == "w:numFmt")
                           format.kind = value("w:val");
                         else if (name == "w:lvlText")
                           format.text = value("w:val");
                         else if (name == "w:start")
                           format.start = std::atoi(value("w:val").c_str());
                       }
                     },
                     [&](std::string_view name) {
                       if (name == "w:lvl")
                         level = -1;
                       else if (name == "w:num")
                         numID.clear();
                     },
                     nullptr};
    parseXml(xml, events);
  }

  // The label of the next item of list `numID` at `level`, e.g. "2)" or "•"; empty for none.
  std::string next(const std::string& numID, int level) {
    auto list = lists_.find(numID);
    if (list == lists_.end() || level < 0 || level >= 9) return {};
    auto& levels = formats_[list->second];
    auto& counters = counters_[list->second];
    auto index = static_cast<std::size_t>(level);
    counters[index] = counters[index] == 0 ? levels[index].start : counters[index] + 1;
    for (std::size_t deeper = index + 1; deeper < 9; ++deeper) counters[deeper] = 0;
    if (levels[index].kind == "bullet") return "\u2022";
    if (levels[index].kind == "none") return {};
    std::string label;
    const std::string& pattern = levels[index].text;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
      if (pattern[i] == '%' && i + 1 < pattern.size() && pattern[i + 1] >= '1' &&
          pattern[i + 1] <= '9') {
        auto which = static_cast<std::size_t>(pattern[i + 1] - '1');
        label += formatted(std::max(counters[which], levels[which].start), levels[which].kind);
        ++i;
      } else {
        label += pattern[i];
      }
    }
    return label;
  }

 private:
  struct Level {
    std::string kind = "decimal";
    std::string text;
    int start = 1;
  };

  static std::string formatted(int n, const std::string& kind) {
    static const std::pair<std::string_view, ListNumberFormat> kFormats[] = {
        {"lowerLetter", ListNumberFormat::LowerLetter},
        {"upperLetter", ListNumberFormat::UpperLetter},
        {"lowerRoman", ListNumberFormat::LowerRoman},
        {"upperRoman", ListNumberFormat::UpperRoman}};
    for (const auto& [name, format] : kFormats)
      if (kind == name) return listNumber(n, format);
    return listNumber(n, ListNumberFormat::Decimal);
  }

  std::map<std::string, std::string> lists_;  // numId → abstractNumId
  std::map<std::string, std::array<Level, 9>> formats_;
  std::map<std::string, std::array<int, 9>> counters_;
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
  // copy of drawings, and the separators of notes.
  static bool skipped(std::string_view name) {
    return name == "w:del" || name == "w:instrText" || name == "w:delText" ||
           name == "mc:Fallback" || name == "w:fldData" || name == "w:rPr" || name == "w:rt" ||
           name == "w:sectPr";
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
      numID_.clear();
      level_ = 0;
    } else if (name == "w:numId") {
      const char* value = xmlAttribute(attributes, "w:val");
      numID_ = value ? value : "";
    } else if (name == "w:ilvl") {
      const char* value = xmlAttribute(attributes, "w:val");
      level_ = value ? std::atoi(value) : 0;
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
    else if (name == "w:pPr" && numbering_ && !numID_.empty() && numID_ != "0") {
      std::string label = numbering_->next(numID_, level_);
      if (!label.empty()) out_.write(label + " ");
    }
  }

  DocumentText& out_;
  Numbering* numbering_;
  bool inText_ = false;
  bool cellStarted_ = false;
  int skipping_ = 0;
  std::string numID_;
  int level_ = 0;
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
      numbering.read(asText(*xml));
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
