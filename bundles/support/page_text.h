#pragma once

// A PDF page's text as pdftotext lays it out by default, read with poppler's core, whose text
// output this importer can correct before poppler orders it: right-to-left text comes out as it
// was written, ligatures included, without the direction marks poppler adds for display.

#include <cstddef>
#include <memory>
#include <string>

class PDFDoc;

namespace ulvek::plugin {

class PageTextReader {
 public:
  // nullptr where poppler cannot open the document or it needs a password to be read.
  static std::unique_ptr<PageTextReader> fromFile(const std::string& path);
  // Reads `bytes` in place: they must outlive the reader.
  static std::unique_ptr<PageTextReader> fromBytes(const char* bytes, std::size_t size);
  ~PageTextReader();

  int pages() const;
  // Page `index` (from 0), without the form feed and line ends poppler ends it with.
  std::string text(int index);

 private:
  explicit PageTextReader(std::unique_ptr<PDFDoc> document);
  std::unique_ptr<PDFDoc> document_;
};

}  // namespace ulvek::plugin
