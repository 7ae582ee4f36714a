#pragma once

// Page text as the PDF and Mail importers take it from poppler, one way for both.

#include <poppler/cpp/poppler-document.h>
#include <poppler/cpp/poppler-page.h>

#include <cstddef>
#include <memory>
#include <string>

namespace ulvek::plugin {

// poppler's UTF-8, without the NUL units some strings end in.
inline std::string utf8(const poppler::ustring& text) {
  poppler::byte_array bytes = text.to_utf8();
  std::string result(bytes.begin(), bytes.end());
  while (!result.empty() && result.back() == '\0') result.pop_back();
  return result;
}

// One page in reading order, as pdftotext reads by default, without the form feed and line ends
// it ends with.
inline std::string pageText(poppler::page& page) {
  std::string text = utf8(page.text(poppler::rectf(), poppler::page::non_raw_non_physical_layout));
  while (!text.empty() && (text.back() == '\f' || text.back() == '\n')) text.pop_back();
  return text;
}

// The pages' texts, each followed by a line feed; pages without text are left out. Reading stops
// once `limit` bytes have been gathered.
inline std::string documentText(poppler::document& document,
                                std::size_t limit = std::string::npos) {
  std::string text;
  for (int index = 0; index < document.pages() && text.size() < limit; ++index) {
    std::unique_ptr<poppler::page> page(document.create_page(index));
    if (!page) continue;
    std::string onPage = pageText(*page);
    if (onPage.empty()) continue;
    text += onPage;
    text += '\n';
  }
  return text;
}

}  // namespace ulvek::plugin
