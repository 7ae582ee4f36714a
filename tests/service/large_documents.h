#pragma once

// Large documents made at test time, too large to keep in the repository.

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace ulvek::testing {

// A valid PDF of one page that shows `text` (ASCII without parentheses or backslashes), grown to
// about `totalBytes` by a stream object no page uses: every byte is read off the wire, but the
// reader's work stays that of a one-page document.
inline std::string paddedPdf(std::string_view text, std::size_t totalBytes) {
  std::string pdf = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
  std::vector<std::size_t> offsets;
  auto object = [&](const std::string& body) {
    offsets.push_back(pdf.size());
    pdf += std::to_string(offsets.size()) + " 0 obj\n" + body + "\nendobj\n";
  };
  std::string content = "BT /F1 24 Tf 72 700 Td (" + std::string(text) + ") Tj ET";
  object("<< /Type /Catalog /Pages 2 0 R >>");
  object("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
  object(
      "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 612 792] /Contents 4 0 R "
      "/Resources << /Font << /F1 5 0 R >> >> >>");
  object("<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
         "\nendstream");
  object("<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica >>");
  std::size_t padding = totalBytes > pdf.size() + 512 ? totalBytes - pdf.size() - 512 : 0;
  offsets.push_back(pdf.size());
  pdf += "6 0 obj\n<< /Length " + std::to_string(padding) + " >>\nstream\n";
  pdf.append(padding, '%');
  pdf += "\nendstream\nendobj\n";
  std::size_t xref = pdf.size();
  pdf += "xref\n0 " + std::to_string(offsets.size() + 1) + "\n0000000000 65535 f \n";
  for (std::size_t offset : offsets) {
    char line[32];
    std::snprintf(line, sizeof line, "%010zu 00000 n \n", offset);
    pdf += line;
  }
  pdf += "trailer\n<< /Size " + std::to_string(offsets.size() + 1) +
         " /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
  return pdf;
}

}  // namespace ulvek::testing
