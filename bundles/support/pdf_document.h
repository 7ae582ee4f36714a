#pragma once

// A PDF document read with poppler's core, the one document an importer thread needs: its
// information, page sizes, pages rendered for OCR, and page text as pdftotext lays it out by
// default, corrected before poppler orders it so that right-to-left text comes out as it was
// written, ligatures included, without the direction marks poppler adds for display.

#include <cstddef>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class OutputDev;
class PDFDoc;
class Page;

namespace ulvek::plugin {

// Sets poppler's globals up, once a process: text comes out in UTF-8.
void usePoppler();

// The document information dictionary, in UTF-8 as written; dates 0 where there are none.
struct DocumentInfo {
  std::string title, author, subject, keywords, creator, producer;
  std::time_t created = 0, modified = 0;
};

struct PageSize {
  double width = 0, height = 0;  // points
};

// A page rendered in grey, one byte a pixel, rows `rowBytes` apart.
struct GreyPage {
  std::vector<unsigned char> pixels;
  int width = 0, height = 0, rowBytes = 0;
};

class PdfDocument {
 public:
  enum class Opening { opened, locked, unreadable };

  // nullptr where poppler cannot open the document or it needs a password to be read, which
  // `opening` tells apart.
  static std::unique_ptr<PdfDocument> fromFile(const std::string& path, Opening* opening = nullptr);
  // Reads `bytes` in place: they must outlive the document.
  static std::unique_ptr<PdfDocument> fromBytes(const char* bytes, std::size_t size,
                                                Opening* opening = nullptr);
  ~PdfDocument();

  int pages() const;
  bool encrypted() const;
  DocumentInfo info() const;
  // The media or crop box of page `index` (from 0); nothing for a page that is not there.
  std::optional<PageSize> mediaBox(int index) const;
  std::optional<PageSize> cropBox(int index) const;

  // Page `index` (from 0), without the form feed and line ends poppler ends it with.
  std::string text(int index);
  // Page `index` as its crop box shows it, at `dpi`, antialiased; nothing where poppler draws
  // nothing.
  std::optional<GreyPage> grey(int index, double dpi);
  // Interprets page `index` at 72 dpi for `device`, which may end it early through `stop`, asked
  // with `data` as drawing goes on; false for a page that is not there.
  bool display(int index, OutputDev& device, bool (*stop)(void* data) = nullptr,
               void* data = nullptr);

 private:
  explicit PdfDocument(std::unique_ptr<PDFDoc> document);
  Page* page(int index) const;  // null for a page that is not there
  std::unique_ptr<PDFDoc> document_;
};

// A PDF date ("D:20190412093000Z") as seconds since 1970, or 0.
std::time_t pdfDate(const std::string& text);

}  // namespace ulvek::plugin
