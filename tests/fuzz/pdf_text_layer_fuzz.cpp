// The PDF importer's reading of text layers: each page of a hostile PDF interpreted by poppler's
// core to tell invisible text from visible and to give its text in reading order, its
// information and first page rendered, and the failed-reading rule over hostile UTF-8.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_support.h"
#include "pdf_document.h"
#include "text_layer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (auto document =
          ulvek::plugin::PdfDocument::fromBytes(reinterpret_cast<const char*>(data), size)) {
    const std::vector<std::size_t> pages = {0, 1, 2, 3, 1000000};
    ulvek::fuzzing::check(ulvek::plugin::pdf::onlyInvisibleText(*document, pages).size() ==
                          pages.size());
    for (int index : {0, 1, 2, 3, document->pages() - 1, 1000000}) (void)document->text(index);
    (void)document->info();
    (void)document->mediaBox(0);
    // Small, as OCR's renderings are large only in pixels.
    if (std::optional<ulvek::plugin::GreyPage> page = document->grey(0, 9))
      ulvek::fuzzing::check(page->pixels.size() == std::size_t(page->rowBytes) * page->height);
  }
  ulvek::plugin::pdf::isFailedReading(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
