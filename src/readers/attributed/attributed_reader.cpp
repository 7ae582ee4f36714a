#include "readers/attributed/attributed_reader.h"

#include <sys/stat.h>

#include <array>
#include <string>

#include "base/ascii.h"
#include "base/failure.h"
#include "base/log.h"
#include "readers/doc/word_document_reader.h"
#include "readers/odf/open_document_reader.h"
#include "readers/ooxml/office_open_xml_reader.h"
#include "readers/rtf/rtf_reader.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

std::string lowerExtension(std::string_view name) {
  std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return {};
  return asciiLowercase(name.substr(dot + 1));
}

// What is not one of the formats is read as text, in the encoding it is detected in.
std::optional<ReaderOutput> readPlainText(const ReaderSource& source) {
  std::optional<Bytes> bytes = source.bytes();
  if (!bytes) return std::nullopt;
  std::optional<DetectedText> text = decodeDetectingEncoding(*bytes);
  if (!text) return std::nullopt;
  return ReaderOutput{.convention = Convention::AttributedDocument,
                      .text = std::move(text->text),
                      .documentType = kPlainTextDocumentType};
}

// Formats in the order they are tried on the content; one row per format family.
constexpr AttributedFormat kFormats[] = {
    {kRTFTextDocumentType, looksLikeRTF, readRTF, false},
    {kDocFormatTextDocumentType, looksLikeWordDocument, readWordDocument, true},
    {kOfficeOpenXMLTextDocumentType, looksLikeOfficeOpenXML, readOfficeOpenXML, false},
    {kOpenDocumentTextDocumentType, looksLikeOpenDocumentText, readOpenDocumentText, false},
    {kWordMLTextDocumentType, looksLikeWordML, readWordML, false},
};

class AttributedDocumentReader final : public Reader {
 public:
  std::string_view name() const override { return "attributed document"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    std::string extension = lowerExtension(source.name());
    // An RTFD is a folder with its text inside.
    if (auto rtfd = readRTFD(source)) return rtfd;
    std::optional<Bytes> bytes = source.bytes();
    Bytes content = bytes ? *bytes : Bytes();
    for (const AttributedFormat& format : kFormats) {
      if (!format.looksLike(content, extension)) continue;
      // What the format's reader reported goes on to the caller; where it said why it could not
      // read the document (a member past the size limits), that is the one reason given.
      std::optional<ReaderOutput> output;
      std::optional<Failure> why;
      {
        FailureScope scope;
        output = format.read(source);
        why = scope.failure();
      }
      if (why) reportFailure(why->kind, why->message);
      if (output) return output;
      if (format.plainTextWhenUnread) break;
      // A container that could not be read is no text either: its bytes would be garbage.
      if (!why)
        logFailure(
            FailureKind::Damaged,
            "Damaged document: " + std::string(source.isFile() ? source.path() : source.name()));
      return std::nullopt;
    }
    if (!bytes) return std::nullopt;  // a folder no format took
    // A package none of the formats took is missing its document; its bytes are no text.
    if (std::string_view(reinterpret_cast<const char*>(content.data()), content.size())
            .starts_with("PK\x03\x04")) {
      logFailure(
          FailureKind::Damaged,
          "Damaged document: " + std::string(source.isFile() ? source.path() : source.name()) +
              " (no document in the package)");
      return std::nullopt;
    }
    return readPlainText(source);
  }
};

}  // namespace

const Reader& attributedDocumentReader() {
  static const AttributedDocumentReader reader;
  return reader;
}

}  // namespace ulvek
