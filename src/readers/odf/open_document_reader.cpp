#include "readers/odf/open_document_reader.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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

constexpr std::string_view kTextTypes[] = {"application/vnd.oasis.opendocument.text",
                                           "application/vnd.sun.xml.writer"};

std::string attribute(const char** attributes, const char* key) {
  const char* found = xmlAttribute(attributes, key);
  return found ? found : "";
}

// The name without its namespace prefix: "math:mi" and "mi" alike.
std::string_view localName(std::string_view name) {
  std::size_t colon = name.find(':');
  return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

// The list styles of a document, by name, and its headings' outline numbering.
struct ListStyles {
  std::map<std::string, std::array<ListLevel, kListLevels>> lists;
  std::array<ListLevel, kListLevels> outline;
  std::map<std::string, std::string> paragraphLists;  // paragraph style → its list style
};

// "1", "a", "A", "i", "I" and an empty format (no number).
ListLevel numberedLevel(const char** attributes, std::size_t level) {
  ListLevel answer;
  std::string format = attribute(attributes, "style:num-format");
  static const std::pair<std::string_view, ListNumberFormat> kFormats[] = {
      {"a", ListNumberFormat::LowerLetter},
      {"A", ListNumberFormat::UpperLetter},
      {"i", ListNumberFormat::LowerRoman},
      {"I", ListNumberFormat::UpperRoman}};
  for (const auto& [name, kind] : kFormats)
    if (format == name) answer.format = kind;
  if (format.empty()) {
    answer.kind = ListLevel::Kind::None;
    return answer;
  }
  if (std::string start = attribute(attributes, "text:start-value"); !start.empty())
    answer.start = std::clamp(std::atoi(start.c_str()), 0, 1000000);
  // The numbers of the levels shown, a full stop apart, between the prefix and the suffix.
  int shown = std::atoi(attribute(attributes, "text:display-levels").c_str());
  std::size_t levels = std::clamp<std::size_t>(std::size_t(std::max(shown, 1)), 1, level + 1);
  answer.pattern = fromUtf8(attribute(attributes, "style:num-prefix"));
  for (std::size_t shownLevel = level + 1 - levels; shownLevel <= level; ++shownLevel) {
    if (shownLevel > level + 1 - levels) answer.pattern += u'.';
    answer.pattern += char16_t(shownLevel);
  }
  answer.pattern += fromUtf8(attribute(attributes, "style:num-suffix"));
  return answer;
}

void readListStyles(std::string_view xml, ListStyles& styles) {
  std::array<ListLevel, kListLevels>* levels = nullptr;
  XmlEvents events{[&](std::string_view name, const char** attributes) {
                     if (name == "text:list-style") {
                       levels = &styles.lists[attribute(attributes, "style:name")];
                     } else if (name == "text:outline-style") {
                       levels = &styles.outline;
                     } else if (name == "style:style") {
                       std::string list = attribute(attributes, "style:list-style-name");
                       if (!list.empty())
                         styles.paragraphLists[attribute(attributes, "style:name")] = list;
                     } else if (levels && (name.starts_with("text:list-level-style-") ||
                                           name == "text:outline-level-style")) {
                       int level = std::atoi(attribute(attributes, "text:level").c_str()) - 1;
                       if (level < 0 || level >= int(kListLevels)) return;
                       ListLevel& at = (*levels)[std::size_t(level)];
                       if (name == "text:list-level-style-bullet")
                         at = ListLevel{.kind = ListLevel::Kind::Bullet};
                       else if (name == "text:list-level-style-image")
                         at = ListLevel{.kind = ListLevel::Kind::None};
                       else
                         at = numberedLevel(attributes, std::size_t(level));
                     }
                   },
                   [&](std::string_view name) {
                     if (name == "text:list-style" || name == "text:outline-style")
                       levels = nullptr;
                   },
                   nullptr};
  parseXml(xml, events);
}

// What cross-references point at: the text of bookmarks and reference marks, and each
// sequence field's category, number and caption.
struct ReferenceTargets {
  std::map<std::string, std::string> marks;  // bookmark or reference mark → its text
  struct Sequence {
    std::string category, value, caption;
  };
  std::map<std::string, Sequence> sequences;
};

ReferenceTargets readReferenceTargets(std::string_view xml) {
  ReferenceTargets targets;
  std::map<std::string, std::string> open;
  std::string sequence, paragraph;
  std::vector<std::string> captioned;  // sequences in the paragraph being read
  XmlEvents events{[&](std::string_view name, const char** attributes) {
                     std::string key = attribute(attributes, "text:name");
                     if (name == "text:bookmark-start" || name == "text:reference-mark-start") {
                       // Every open mark collects the text read: a few at a time, as documents
                       // nest them.
                       if (open.size() < 16) open[key];
                     } else if (name == "text:bookmark-end" || name == "text:reference-mark-end") {
                       if (auto mark = open.find(key); mark != open.end()) {
                         targets.marks[key] = mark->second;
                         open.erase(mark);
                       }
                     } else if (name == "text:sequence") {
                       sequence = attribute(attributes, "text:ref-name");
                       targets.sequences[sequence].category = key;
                       captioned.push_back(sequence);
                     } else if (name == "text:p" || name == "text:h") {
                       paragraph.clear();
                     }
                   },
                   [&](std::string_view name) {
                     if (name == "text:sequence") {
                       sequence.clear();
                     } else if (name == "text:p" || name == "text:h") {
                       for (const std::string& name : captioned)
                         targets.sequences[name].caption = paragraph;
                       captioned.clear();
                     }
                   },
                   [&](std::string_view text) {
                     for (auto& [name, marked] : open)
                       if (marked.size() < 4096) marked += text;
                     if (!sequence.empty()) targets.sequences[sequence].value += text;
                     if (paragraph.size() < 4096) paragraph += text;
                   }};
  parseXml(xml, events);
  return targets;
}

// What a cross-reference shows where the document keeps no result of its own.
std::string referencedText(const ReferenceTargets& targets, std::string_view element,
                           const std::string& name, const std::string& format) {
  if (element == "text:sequence-ref") {
    auto found = targets.sequences.find(name);
    if (found == targets.sequences.end()) return {};
    const ReferenceTargets::Sequence& sequence = found->second;
    if (format == "value") return sequence.value;
    if (format == "caption") return sequence.caption;
    return sequence.category + " " + sequence.value;
  }
  auto found = targets.marks.find(name);
  if (found == targets.marks.end() || (!format.empty() && format != "text")) return {};
  return found->second;
}

// A formula's text: its StarMath source where it keeps one, else its symbols with the
// operators a space apart ("a2 + b2 = c2").
class FormulaText {
 public:
  void start(std::string_view name, const char** attributes) {
    name = localName(name);
    inAnnotation_ =
        name == "annotation" && attribute(attributes, "encoding").starts_with("StarMath");
    inToken_ = name == "mi" || name == "mn" || name == "mo" || name == "mtext" || name == "ms";
    operator_ = name == "mo";
    if (name == "annotation" || name == "annotation-xml") ++skipping_;
  }
  void end(std::string_view name) {
    name = localName(name);
    if (name == "annotation" || name == "annotation-xml") --skipping_;
    inAnnotation_ = inToken_ = false;
  }
  void text(std::string_view text) {
    if (inAnnotation_) {
      source_ += text;
      return;
    }
    if (skipping_ > 0 || !inToken_) return;
    bool invisible = text == "\u2061" || text == "\u2062" || text == "\u2063" || text == "\u2064";
    if (invisible) return;
    if (operator_ && text != "(" && text != ")")
      tokens_ += " " + std::string(text) + " ";
    else
      tokens_ += text;
  }
  std::string take() const {
    const std::string& chosen = source_.empty() ? tokens_ : source_;
    std::string answer;
    for (char c : chosen) {
      bool blank = c == ' ' || c == '\n' || c == '\t' || c == '\r';
      if (blank && (answer.empty() || answer.back() == ' ')) continue;
      answer += blank ? ' ' : c;
    }
    while (!answer.empty() && answer.back() == ' ') answer.pop_back();
    return answer;
  }

 private:
  std::string source_, tokens_;
  bool inAnnotation_ = false, inToken_ = false, operator_ = false;
  int skipping_ = 0;
};

// The text an embedded object's own content.xml shows: a formula's, or a chart's titles (its
// numbers are no text to find it by).
std::string objectText(std::string_view xml) {
  FormulaText formula;
  std::string titles;
  int inTitle = 0;
  XmlEvents events{
      [&](std::string_view name, const char** attributes) {
        formula.start(name, attributes);
        if (name == "chart:title" || name == "chart:subtitle" || name == "chart:footer") {
          ++inTitle;
          if (!titles.empty()) titles += ' ';
        }
      },
      [&](std::string_view name) {
        formula.end(name);
        if (name == "chart:title" || name == "chart:subtitle" || name == "chart:footer") --inTitle;
      },
      [&](std::string_view text) {
        if (inTitle > 0 && titles.size() < 4096)
          titles += text;
        else
          formula.text(text);
      }};
  parseXml(xml, events);
  return titles.empty() ? formula.take() : titles;
}

// The body's text; notes go to their own text, read after the body.
class ContentText {
 public:
  // `objects` answers the text of an embedded object by its reference ("./Object 1").
  ContentText(DocumentText& body, DocumentText& notes, const ListStyles& styles,
              const ReferenceTargets& targets, std::function<std::string(std::string_view)> objects)
      : body_(body),
        notes_(notes),
        styles_(styles),
        targets_(targets),
        objects_(std::move(objects)) {}

  XmlEvents events() {
    return {[this](std::string_view name, const char** attributes) { start(name, attributes); },
            [this](std::string_view name) { end(name); },
            [this](std::string_view text) {
              if (formula_) {
                formula_->text(text);
                return;
              }
              if (skipping_ == 0 && paragraphs_ > 0) {
                out().write(text);
                if (!text.empty()) referenceAnswered_ = true;
              }
            }};
  }

 private:
  DocumentText& out() { return inNote_ > 0 ? notes_ : body_; }

  static bool skipped(std::string_view name) {
    return name == "text:note-citation" || name == "office:annotation" ||
           name == "text:tracked-changes" || name == "text:sequence-decls" ||
           name == "office:forms" || name == "svg:desc" || name == "svg:title" ||
           name == "office:automatic-styles" || name == "office:font-face-decls" ||
           name == "office:styles" || name == "office:master-styles" || name == "draw:image" ||
           name == "office:event-listeners";
  }

  static bool isReference(std::string_view name) {
    return name == "text:bookmark-ref" || name == "text:sequence-ref" ||
           name == "text:reference-ref";
  }

  // A list, where it starts: its style and counters, new or those of the list it continues.
  struct OpenList {
    const std::array<ListLevel, kListLevels>* levels = nullptr;
    std::shared_ptr<ListCounters> counters;
    bool itemLabelled = true;  // the current item's first paragraph has been seen
  };

  void startList(const char** attributes) {
    OpenList list;
    std::string style = attribute(attributes, "text:style-name");
    if (!lists_.empty()) {
      list.levels = lists_.back().levels;
      list.counters = lists_.back().counters;
    } else {
      std::string continued = attribute(attributes, "text:continue-list");
      if (auto found = listsByID_.find(continued); found != listsByID_.end())
        list.counters = found->second;
      else if (attribute(attributes, "text:continue-numbering") == "true")
        list.counters = lastList_;
      if (!list.counters) list.counters = std::make_shared<ListCounters>();
      lastList_ = list.counters;
    }
    if (auto found = styles_.lists.find(style); found != styles_.lists.end())
      list.levels = &found->second;
    if (std::string id = attribute(attributes, "xml:id"); !id.empty() && lists_.empty())
      listsByID_[id] = list.counters;
    lists_.push_back(list);
  }

  // The label of a paragraph that starts a list item, or of a numbered heading.
  TextString label(std::string_view name, const char** attributes) {
    if (!lists_.empty() && !lists_.back().itemLabelled) {
      OpenList& list = lists_.back();
      list.itemLabelled = true;
      std::size_t level = lists_.size() - 1;
      const std::array<ListLevel, kListLevels>* levels = list.levels;
      if (!levels) {
        auto paragraphList = styles_.paragraphLists.find(attribute(attributes, "text:style-name"));
        if (paragraphList != styles_.paragraphLists.end()) {
          auto found = styles_.lists.find(paragraphList->second);
          if (found != styles_.lists.end()) levels = &found->second;
        }
      }
      if (!levels || level >= kListLevels) return {};
      return listLabelPrefix(list.counters->next(*levels, level), level);
    }
    if (name != "text:h" || !lists_.empty() ||
        attribute(attributes, "text:is-list-header") == "true")
      return {};
    int level = std::atoi(attribute(attributes, "text:outline-level").c_str()) - 1;
    if (level < 0 || level >= int(kListLevels)) return {};
    if (styles_.outline[std::size_t(level)].kind != ListLevel::Kind::Number) return {};
    return listLabelPrefix(outline_.next(styles_.outline, std::size_t(level)), std::size_t(level));
  }

  void start(std::string_view name, const char** attributes) {
    if (formula_) {
      formula_->start(name, attributes);
      ++formulaDepth_;
      return;
    }
    if (skipping_ > 0 || skipped(name)) {
      ++skipping_;
      return;
    }
    if (name == "text:note-body") {
      ++inNote_;
      notes_.paragraph();
    } else if (name == "text:p" || name == "text:h") {
      if (++paragraphs_ == 1) {
        out().paragraph();
        out().writeText(label(name, attributes));
      }
    } else if (name == "text:list") {
      startList(attributes);
    } else if (name == "text:list-item" && !lists_.empty()) {
      lists_.back().itemLabelled = false;
      std::string value = attribute(attributes, "text:start-value");
      if (!value.empty())
        lists_.back().counters->restart(lists_.size() - 1,
                                        std::clamp(std::atoi(value.c_str()), 0, 1000000));
    } else if (name == "text:list-header" && !lists_.empty()) {
      lists_.back().itemLabelled = true;
    } else if (isReference(name)) {
      reference_ = {std::string(name), attribute(attributes, "text:ref-name"),
                    attribute(attributes, "text:reference-format")};
      referenceAnswered_ = false;
    } else if (name == "draw:object") {
      std::string href = attribute(attributes, "xlink:href");
      if (!href.empty() && objects_ && paragraphs_ > 0) out().write(objects_(href));
    } else if (localName(name) == "math") {
      // A formula written into the document itself, as flat files keep them.
      formula_.emplace();
      formulaDepth_ = 1;
    } else if (name == "text:s") {
      const char* count = xmlAttribute(attributes, "text:c");
      int spaces = count ? std::clamp(std::atoi(count), 1, 1000) : 1;
      if (paragraphs_ > 0) out().writeText(TextString(static_cast<std::size_t>(spaces), u' '));
    } else if (name == "text:tab") {
      if (paragraphs_ > 0) out().character(u'\t');
    } else if (name == "text:line-break") {
      if (paragraphs_ > 0) out().character(u'\n');
    } else if (name == "table:table-cell") {
      out().cell();
    } else if (name == "table:table-row") {
      out().paragraph();
    }
  }

  void end(std::string_view name) {
    if (formula_) {
      formula_->end(name);
      if (--formulaDepth_ == 0) {
        if (paragraphs_ > 0 && skipping_ == 0) out().write(formula_->take());
        formula_.reset();
      }
      return;
    }
    if (skipping_ > 0) {
      --skipping_;
      return;
    }
    if (name == "text:note-body") {
      --inNote_;
    } else if (name == "text:p" || name == "text:h") {
      --paragraphs_;
    } else if (name == "text:list" && !lists_.empty()) {
      lists_.pop_back();
    } else if (isReference(name)) {
      // A reference without a result of its own shows what it points at.
      if (!referenceAnswered_ && paragraphs_ > 0)
        out().write(
            referencedText(targets_, reference_.element, reference_.name, reference_.format));
    }
  }

  DocumentText& body_;
  DocumentText& notes_;
  const ListStyles& styles_;
  const ReferenceTargets& targets_;
  std::function<std::string(std::string_view)> objects_;
  int skipping_ = 0;
  int inNote_ = 0;
  int paragraphs_ = 0;
  std::vector<OpenList> lists_;
  std::shared_ptr<ListCounters> lastList_;
  std::map<std::string, std::shared_ptr<ListCounters>> listsByID_;
  ListCounters outline_;
  struct Reference {
    std::string element, name, format;
  };
  Reference reference_;
  bool referenceAnswered_ = true;
  std::optional<FormulaText> formula_;
  int formulaDepth_ = 0;
};

// meta.xml, or a flat document's office:meta.
void readMetadata(std::string_view xml, ReaderOutput& output) {
  TextList keywords;
  std::string text;
  XmlEvents events{[&](std::string_view, const char**) { text.clear(); },
                   [&](std::string_view name) {
                     if (text.empty()) return;
                     if (name == "dc:title")
                       setOnce(output.title, fromUtf8(text));
                     else if (name == "dc:subject")
                       setOnce(output.subject, fromUtf8(text));
                     else if (name == "dc:description")
                       setOnce(output.comment, fromUtf8(text));
                     else if (name == "meta:initial-creator" || name == "dc:creator")
                       setOnce(output.authors, TextList{fromUtf8(text)});
                     else if (name == "meta:keyword")
                       for (TextString& word : keywordList(text))
                         keywords.push_back(std::move(word));
                     else if (name == "meta:creation-date")
                       setOnce(output.creation, w3cDate(text));
                     else if (name == "dc:date")
                       setOnce(output.modification, w3cDate(text));
                     text.clear();
                   },
                   [&](std::string_view chunk) { text.append(chunk); }};
  parseXml(xml, events);
  if (!keywords.empty()) output.keywords = std::move(keywords);
}

// `styles`: the documents holding the list styles (content.xml itself and styles.xml).
TextString contentText(std::string_view xml, const std::string& name,
                       const std::vector<std::string_view>& styleDocuments,
                       std::function<std::string(std::string_view)> objects = nullptr) {
  ListStyles styles;
  for (std::string_view document : styleDocuments) readListStyles(document, styles);
  ReferenceTargets targets = readReferenceTargets(xml);
  DocumentText body, notes;
  ContentText content(body, notes, styles, targets, std::move(objects));
  if (!parseXml(xml, content.events()))
    logFailure(FailureKind::Damaged, "Damaged document: " + name);
  TextString text = body.take();
  TextString noteText = notes.take();
  if (!noteText.empty()) text += (text.empty() ? u"" : u"\n") + noteText;
  return text;
}

}  // namespace

bool looksLikeOpenDocumentText(Bytes bytes, std::string_view extension) {
  std::string_view start = asText(bytes).substr(0, 4096);
  bool zip = start.starts_with("PK\x03\x04");
  for (std::string_view type : kTextTypes) {
    if (start.find(type) == std::string_view::npos) continue;
    // The template types end the same way; a spreadsheet's do not.
    std::size_t at = start.find(type) + type.size();
    if (at < start.size() && start[at] != '-' && start[at] != '"' && !zip) continue;
    return zip || start.find("office:document") != std::string_view::npos;
  }
  return false;
}

std::optional<ReaderOutput> readOpenDocumentText(const ReaderSource& source) {
  std::optional<Bytes> bytes = source.bytes();
  if (!bytes) return std::nullopt;
  std::string name = source.isFile() ? source.path() : std::string(source.name());
  ReaderOutput output{.convention = Convention::AttributedDocument,
                      .documentType = kOpenDocumentTextDocumentType};
  if (!asText(*bytes).starts_with("PK\x03\x04")) {
    // Flat XML: the content and the metadata in one document.
    output.text = contentText(asText(*bytes), name, {asText(*bytes)});
    readMetadata(asText(*bytes), output);
  } else {
    std::unique_ptr<ZipArchive> archive = ZipArchive::initWithData(*bytes, name);
    if (!archive) return std::nullopt;
    std::optional<Data> content = archive->dataForNamedFile("content.xml");
    if (!content) return std::nullopt;
    std::optional<Data> styles;
    if (archive->testForNamedFile("styles.xml")) styles = archive->dataForNamedFile("styles.xml");
    std::vector<std::string_view> styleDocuments{asText(*content)};
    if (styles) styleDocuments.push_back(asText(*styles));
    // An embedded object keeps its content in its own folder of the package.
    // Each object is read once, however often the document shows it.
    std::map<std::string, std::string, std::less<>> objectTexts;
    auto objects = [&](std::string_view href) -> std::string {
      std::string folder(href.starts_with("./") ? href.substr(2) : href);
      if (folder.empty() || folder.find("..") != std::string::npos) return {};
      if (auto known = objectTexts.find(folder); known != objectTexts.end()) return known->second;
      std::string member = folder + "/content.xml";
      std::optional<Data> object;
      if (archive->testForNamedFile(member)) object = archive->dataForNamedFile(member);
      std::string text = object ? objectText(asText(*object)) : std::string();
      return objectTexts[folder] = text;
    };
    output.text = contentText(asText(*content), name, styleDocuments, objects);
    if (archive->testForNamedFile("meta.xml")) {
      if (std::optional<Data> meta = archive->dataForNamedFile("meta.xml"))
        readMetadata(asText(*meta), output);
    }
  }
  return output;
}

}  // namespace ulvek
