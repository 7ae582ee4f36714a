// A PDF document through poppler's core: opening, information, boxes and rendering.

#include <poppler/DateInfo.h>
#include <poppler/GlobalParams.h>
#include <poppler/PDFDoc.h>
#include <poppler/SplashOutputDev.h>
#include <poppler/Stream.h>
#include <poppler/UTF.h>
#include <poppler/goo/GooString.h>
#include <poppler/goo/gmem.h>
#include <poppler/splash/SplashBitmap.h>
#include <unicode/utf8.h>

#include <cstdlib>
#include <mutex>
#include <optional>

#include "pdf_document.h"

namespace ulvek::plugin {
namespace {

// A text string of the document (PDFDocEncoding, or UTF-16 after its byte order mark) in UTF-8,
// without the NULs some writers end it with; what is not a character becomes U+FFFD.
std::string utf8(const std::optional<GooString>& text) {
  std::string result;
  if (!text) return result;
  Unicode* characters = nullptr;
  const int count = TextStringToUCS4(text->toStr(), &characters);
  for (int at = 0; at < count; ++at) {
    UChar32 c = static_cast<UChar32>(characters[at]);
    if (c == 0) continue;
    if (c > 0x10FFFF || U_IS_SURROGATE(c)) c = 0xFFFD;
    char bytes[U8_MAX_LENGTH];
    int32_t length = 0;
    U8_APPEND_UNSAFE(bytes, length, c);
    result.append(bytes, static_cast<std::size_t>(length));
  }
  gfree(characters);
  return result;
}

// The string under `key` of the information dictionary `info`; nothing for anything else.
std::optional<GooString> infoString(const Object& info, const char* key) {
  if (!info.isDict()) return std::nullopt;
  const Object value = info.dictLookup(key);
  if (!value.isString()) return std::nullopt;
  return GooString(value.getString()->toStr());
}

std::time_t date(const std::optional<GooString>& text) {
  const std::time_t seconds = text ? dateStringToTime(&*text) : 0;
  return seconds > 0 ? seconds : 0;
}

std::unique_ptr<PDFDoc> checked(std::unique_ptr<PDFDoc> document, PdfDocument::Opening* opening) {
  PdfDocument::Opening how = PdfDocument::Opening::opened;
  if (!document->isOk()) {
    how = document->getErrorCode() == errEncrypted ? PdfDocument::Opening::locked
                                                   : PdfDocument::Opening::unreadable;
    document.reset();
  }
  if (opening) *opening = how;
  return document;
}

std::optional<PageSize> sizeOf(const PDFRectangle* box) {
  if (!box) return std::nullopt;
  return PageSize{box->x2 - box->x1, box->y2 - box->y1};
}

}  // namespace

void usePoppler() {
  static std::once_flag once;
  std::call_once(once, [] {
    if (!globalParams) globalParams = std::make_unique<GlobalParams>();
    globalParams->setTextEncoding("UTF-8");
  });
}

PdfDocument::PdfDocument(std::unique_ptr<PDFDoc> document) : document_(std::move(document)) {}

PdfDocument::~PdfDocument() = default;

std::unique_ptr<PdfDocument> PdfDocument::fromFile(const std::string& path, Opening* opening) {
  usePoppler();
  auto document = checked(std::make_unique<PDFDoc>(std::make_unique<GooString>(path)), opening);
  if (!document) return nullptr;
  return std::unique_ptr<PdfDocument>(new PdfDocument(std::move(document)));
}

std::unique_ptr<PdfDocument> PdfDocument::fromBytes(const char* bytes, std::size_t size,
                                                    Opening* opening) {
  usePoppler();
  auto* stream = new MemStream(bytes, 0, static_cast<Goffset>(size), Object(objNull));
  auto document = checked(std::make_unique<PDFDoc>(stream), opening);
  if (!document) return nullptr;
  return std::unique_ptr<PdfDocument>(new PdfDocument(std::move(document)));
}

int PdfDocument::pages() const { return document_->getNumPages(); }

bool PdfDocument::encrypted() const { return document_->isEncrypted(); }

DocumentInfo PdfDocument::info() const {
  // Fetched once: each entry asked of the document by name would parse the dictionary again.
  const Object info = document_->getDocInfo();
  auto text = [&](const char* key) { return utf8(infoString(info, key)); };
  return {text("Title"),
          text("Author"),
          text("Subject"),
          text("Keywords"),
          text("Creator"),
          text("Producer"),
          date(infoString(info, "CreationDate")),
          date(infoString(info, "ModDate"))};
}

Page* PdfDocument::page(int index) const {
  return index >= 0 && index < pages() ? document_->getPage(index + 1) : nullptr;
}

std::optional<PageSize> PdfDocument::mediaBox(int index) const {
  Page* found = page(index);
  return found ? sizeOf(found->getMediaBox()) : std::nullopt;
}

std::optional<PageSize> PdfDocument::cropBox(int index) const {
  Page* found = page(index);
  return found ? sizeOf(found->getCropBox()) : std::nullopt;
}

std::optional<GreyPage> PdfDocument::grey(int index, double dpi) {
  if (index < 0 || index >= pages()) return std::nullopt;
  SplashColor paper = {255, 255, 255, 255};
  SplashOutputDev output(splashModeMono8, 4, false, paper);
  output.setFontAntialias(true);
  output.setVectorAntialias(true);
  output.startDoc(document_.get());
  document_->displayPageSlice(&output, index + 1, dpi, dpi, 0, false, true, false, -1, -1, -1, -1);
  const SplashBitmap* bitmap = output.getBitmap();
  if (!bitmap || bitmap->getWidth() <= 0 || bitmap->getHeight() <= 0) return std::nullopt;
  GreyPage page;
  page.width = bitmap->getWidth();
  page.height = bitmap->getHeight();
  page.rowBytes = bitmap->getRowSize();
  const auto* data = bitmap->getDataPtr();
  page.pixels.assign(data, data + static_cast<std::size_t>(page.rowBytes) * page.height);
  return page;
}

bool PdfDocument::display(int index, OutputDev& device, bool (*stop)(void* data), void* data) {
  if (index < 0 || index >= pages()) return false;
  document_->displayPage(&device, index + 1, 72, 72, 0, false, true, false, stop, data);
  return true;
}

std::time_t pdfDate(const std::string& text) { return date(GooString(text)); }

}  // namespace ulvek::plugin
