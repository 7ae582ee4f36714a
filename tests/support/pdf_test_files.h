#pragma once

// PDF documents written at test time: small ones whose every byte a test chooses, and large
// ones too large to keep in the repository.

#include <cstdio>
#include <string>
#include <vector>

namespace ulvek::testing {

// Objects numbered from 1 in the order they are added, the first being the catalog, then the
// cross-reference table that points at them.
class PdfWriter {
 public:
  // Adds object `body` ("<< ... >>", or a dictionary and its stream); answers its number.
  std::size_t add(const std::string& body) {
    offsets_.push_back(out_.size());
    out_ += std::to_string(offsets_.size()) + " 0 obj\n" + body + "\nendobj\n";
    return offsets_.size();
  }
  static std::string stream(const std::string& content) {
    return "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
           "\nendstream";
  }
  // A stream of `length` bytes of `fill`, written in place: it may be hundreds of megabytes.
  std::size_t addFilled(std::size_t length, char fill) {
    offsets_.push_back(out_.size());
    out_ += std::to_string(offsets_.size()) + " 0 obj\n<< /Length " + std::to_string(length) +
            " >>\nstream\n";
    out_.append(length, fill);
    out_ += "\nendstream\nendobj\n";
    return offsets_.size();
  }
  std::size_t size() const { return out_.size(); }

  // `trailer` is more of the trailer dictionary ("/Info 3 0 R").
  std::string finish(const std::string& trailer = "") {
    std::size_t xref = out_.size();
    out_ += "xref\n0 " + std::to_string(offsets_.size() + 1) + "\n0000000000 65535 f \n";
    for (std::size_t offset : offsets_) {
      char line[32];
      std::snprintf(line, sizeof line, "%010zu 00000 n \n", offset);
      out_ += line;
    }
    out_ += "trailer\n<< /Size " + std::to_string(offsets_.size() + 1) + " /Root 1 0 R " + trailer +
            " >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
    return std::move(out_);
  }

 private:
  std::string out_ = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
  std::vector<std::size_t> offsets_;
};

// A PDF of one page a content stream, each drawing with Helvetica as /F1; `toUnicode`, where
// given, is the body of the font's ToUnicode CMap: "<61> <0627>" lines, one per code.
inline std::string pdfOfPages(const std::vector<std::string>& contents,
                              const std::vector<std::string>& toUnicode = {}) {
  PdfWriter pdf;
  std::string kids;
  for (std::size_t i = 0; i < contents.size(); ++i) kids += std::to_string(4 + 2 * i) + " 0 R ";
  pdf.add("<< /Type /Catalog /Pages 2 0 R >>");
  pdf.add("<< /Type /Pages /Kids [" + kids + "] /Count " + std::to_string(contents.size()) + " >>");
  const std::string cmap = std::to_string(4 + 2 * contents.size());
  pdf.add("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica" +
          (toUnicode.empty() ? std::string() : " /ToUnicode " + cmap + " 0 R") + " >>");
  for (std::size_t i = 0; i < contents.size(); ++i) {
    pdf.add(
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Resources << /Font << /F1 3 "
        "0 R >> >> /Contents " +
        std::to_string(5 + 2 * i) + " 0 R >>");
    pdf.add(PdfWriter::stream(contents[i]));
  }
  if (!toUnicode.empty()) {
    std::string body =
        "/CIDInit /ProcSet findresource begin 12 dict begin begincmap\n"
        "/CIDSystemInfo << /Registry (Adobe) /Ordering (UCS) /Supplement 0 >> def\n"
        "/CMapName /Adobe-Identity-UCS def /CMapType 2 def\n"
        "1 begincodespacerange <00> <FF> endcodespacerange\n" +
        std::to_string(toUnicode.size()) + " beginbfchar\n";
    for (const std::string& line : toUnicode) body += line + "\n";
    body += "endbfchar endcmap CMapName currentdict /CMapResource defineresource pop end end";
    pdf.add(PdfWriter::stream(body));
  }
  return pdf.finish();
}

// A valid PDF of one page that shows `text` (ASCII without parentheses or backslashes), grown to
// about `totalBytes` by a stream object no page uses: every byte is read off the wire, but the
// reader's work stays that of a one-page document.
inline std::string paddedPdf(const std::string& text, std::size_t totalBytes) {
  PdfWriter pdf;
  pdf.add("<< /Type /Catalog /Pages 2 0 R >>");
  pdf.add("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
  pdf.add(
      "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents 4 0 R "
      "/Resources << /Font << /F1 5 0 R >> >> >>");
  pdf.add(PdfWriter::stream("BT /F1 24 Tf 72 700 Td (" + text + ") Tj ET"));
  pdf.add("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
  std::size_t padding = totalBytes > pdf.size() + 512 ? totalBytes - pdf.size() - 512 : 0;
  pdf.addFilled(padding, '%');
  return pdf.finish();
}

}  // namespace ulvek::testing
