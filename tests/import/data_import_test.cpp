// Downloaded data: which reader its MIME type or address chooses, and how the word processors'
// and PDF answers reach the result.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "import/mime_type_helper.h"
#include "import/reader_set.h"
#include "protocol/import_result.h"
#include "readers/reader.h"

namespace ulvek {
namespace {

// Answers what it was given and notes the name of each source it read.
class StandInReader final : public Reader {
 public:
  explicit StandInReader(std::optional<ReaderOutput> output) : output_(std::move(output)) {}
  std::string_view name() const override { return "stand-in"; }
  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    names.emplace_back(source.name());
    return output_;
  }
  mutable std::vector<std::string> names;

 private:
  std::optional<ReaderOutput> output_;
};

constexpr Date kTemplateDate{1039443960LL * 1000000};
constexpr Date kLater{kTemplateDate.microseconds + 1000000};

TEST(DataImport, WordProcessorAndPDFData) {
  const ReaderOutput letter{.convention = Convention::AttributedDocument,
                            .text = u"Dear reader",
                            .title = u"Letter",
                            .comment = u"Draft",
                            .creation = kTemplateDate,
                            .modification = kLater,
                            .documentType = kRTFTextDocumentType};
  const ReaderOutput pdf{.convention = Convention::PDFDocument,
                         .text = u"e\u0301t\u00E9\uF8FF",
                         .title = u"<title>",
                         .creation = kTemplateDate};
  const PropertyDictionary kLetter = {{"Title", u"Letter"},
                                      {"Description", u"Draft"},
                                      {"Modification", kLater},
                                      {"Text", u"Dear reader"}};
  // The importers' text is repaired (composed, private characters blanked); the template date
  // is a word processor's only.
  const PropertyDictionary kPDF = {
      {"Title", u"<title>"}, {"Creation", kTemplateDate}, {"Text", u"\u00E9t\u00E9 "}};
  struct Row {
    const char* name;
    std::optional<std::u16string> url, mimeType;
    PropertyDictionary expected;  // the whole result
    const char* readBy;           // "letter", "pdf" or nothing
  };
  const std::vector<Row> rows = {
      {"RTF by its MIME type", u"https://x/get?id=1", u"text/rtf", kLetter, "letter"},
      {"Word by its MIME type", std::nullopt, u"application/msword", kLetter, "letter"},
      {"OpenDocument by its MIME type", std::nullopt, u"application/vnd.oasis.opendocument.text",
       kLetter, "letter"},
      {"StarOffice by its MIME type", std::nullopt, u"application/vnd.sun.xml.writer", kLetter,
       "letter"},
      {"DOCX by its address", u"https://x/files/Letter.DOCX?dl=1#top", std::nullopt, kLetter,
       "letter"},
      {"ODT by its address", u"https://x/letter.odt", std::nullopt, kLetter, "letter"},
      {"PDF by its MIME type", std::nullopt, u"application/pdf", kPDF, "pdf"},
      {"PostScript by its MIME type", std::nullopt, u"application/postscript", kPDF, "pdf"},
      // PDF first, by MIME type or address, then the word processors.
      {"a PDF address before a word processor's MIME type", u"https://x/a.pdf", u"text/rtf", kPDF,
       "pdf"},
      {"a word processor's MIME type before its address", u"https://x/a.odt", u"text/rtf", kLetter,
       "letter"},
      {"HTML is not read here", u"https://x/a.html", u"text/html", {}, nullptr},
      {"neither MIME type nor extension", u"https://x/download", std::nullopt, {}, nullptr},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    StandInReader letterReader(letter), pdfReader(pdf);
    ReaderSet set;
    set.set(Route::AttributedDocument, &letterReader).set(Route::PDF, &pdfReader);
    ImportResult result = MIMETypeHelper(set).openData(Data{'x'}, row.url, row.mimeType);
    EXPECT_EQ(result.values(), row.expected);
    std::string readBy = !letterReader.names.empty() ? "letter"
                         : !pdfReader.names.empty()  ? "pdf"
                                                     : "";
    EXPECT_EQ(readBy, row.readBy ? row.readBy : "");
  }
}

// Data that gives no text stores nothing at all, not even the attributes read with it.
TEST(DataImport, NoTextNoResult) {
  ReaderOutput titleOnly{.convention = Convention::AttributedDocument, .title = u"Letter"};
  StandInReader attributed(titleOnly), failing(std::nullopt), pdf(ReaderOutput{.text = u"x"});
  struct Row {
    const char* name;
    const Reader* attributedReader;
    std::optional<Data> data;
    std::u16string mimeType;
    bool pdfRead;
  };
  const Row rows[] = {
      {"a word processor's answer without text", &attributed, Data{'x'}, u"text/rtf", false},
      {"a word processor that reads nothing", &failing, Data{'x'}, u"text/rtf", false},
      {"no data", &attributed, std::nullopt, u"text/rtf", false},
      {"empty PDF data is not read", &attributed, Data{}, u"application/pdf", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    pdf.names.clear();
    ReaderSet set;
    set.set(Route::AttributedDocument, row.attributedReader).set(Route::PDF, &pdf);
    ImportResult result = MIMETypeHelper(set).openData(row.data, std::nullopt, row.mimeType);
    EXPECT_TRUE(result.values().empty());
    EXPECT_EQ(!pdf.names.empty(), row.pdfRead);
  }
}

}  // namespace
}  // namespace ulvek
