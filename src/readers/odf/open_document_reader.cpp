#include "readers/odf/open_document_reader.h"

#include <algorithm>
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

constexpr std::string_view kTextTypes[] = {"application/vnd.oasis.opendocument.text",
                                           "application/vnd.sun.xml.writer"};

// The body's text; notes go to their own text, read after the body.
class ContentText {
 public:
  ContentText(DocumentText& body, DocumentText& notes) : body_(body), notes_(notes) {}

  XmlEvents events() {
    return {[this](std::string_view name, const char** attributes) { start(name, attributes); },
            [this](std::string_view name) { end(name); },
            [this](std::string_view text) {
              if (skipping_ == 0 && paragraphs_ > 0) out().write(text);
            }};
  }

 private:
  DocumentText& out() { return inNote_ > 0 ? notes_ : body_; }

  static bool skipped(std::string_view name) {
    return name == "text:note-citation" || name == "office:annotation" ||
           name == "text:tracked-changes" || name == "text:sequence-decls" ||
           name == "office:forms" || name == "text:bookmark-ref" || name == "svg:desc" ||
           name == "svg:title" || name == "office:automatic-styles" ||
           name == "office:font-face-decls" || name == "office:styles" ||
           name == "office:master-styles";
  }

  void start(std::string_view name, const char** attributes) {
    if (skipping_ > 0 || skipped(name)) {
      ++skipping_;
      return;
    }
    if (name == "text:note-body") {
      ++inNote_;
      notes_.paragraph();
    } else if (name == "text:p" || name == "text:h") {
      if (++paragraphs_ == 1) out().paragraph();
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
    if (skipping_ > 0) {
      --skipping_;
      return;
    }
    if (name == "text:note-body")
      --inNote_;
    else if (name == "text:p" || name == "text:h")
      --paragraphs_;
  }

  DocumentText& body_;
  DocumentText& notes_;
  int skipping_ = 0;
  int inNote_ = 0;
  int paragraphs_ = 0;
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

TextString contentText(std::string_view xml, const std::string& name) {
  DocumentText body, notes;
  ContentText content(body, notes);
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
    output.text = contentText(asText(*bytes), name);
    readMetadata(asText(*bytes), output);
  } else {
    std::unique_ptr<ZipArchive> archive = ZipArchive::initWithData(*bytes, name);
    if (!archive) return std::nullopt;
    std::optional<Data> content = archive->dataForNamedFile("content.xml");
    if (!content) return std::nullopt;
    output.text = contentText(asText(*content), name);
    if (archive->testForNamedFile("meta.xml")) {
      if (std::optional<Data> meta = archive->dataForNamedFile("meta.xml"))
        readMetadata(asText(*meta), output);
    }
  }
  return output;
}

}  // namespace ulvek
