// poppler's core API changes between versions; its text output is used in this file alone.

#include "page_text.h"

#include <poppler/GlobalParams.h>
#include <poppler/PDFDoc.h>
#include <poppler/Stream.h>
#include <poppler/TextOutputDev.h>
#include <poppler/goo/GooString.h>
#include <unicode/normalizer2.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace ulvek::plugin {
namespace {

bool isRightToLeft(Unicode c) {
  const UCharDirection direction = u_charDirection(static_cast<UChar32>(c));
  return direction == U_RIGHT_TO_LEFT || direction == U_RIGHT_TO_LEFT_ARABIC;
}

bool isLeftToRight(Unicode c) {
  return u_charDirection(static_cast<UChar32>(c)) == U_LEFT_TO_RIGHT;
}

// poppler spreads the characters of one glyph left to right over its width, then reads a
// right-to-left run from its right end: a lam-alef ligature, "لا", would come out "ال", and
// "إلى" as "إىل". Such a glyph's characters are handed to poppler backwards, so that they come
// out as the document wrote them.
class LogicalOrderText : public TextOutputDev {
 public:
  explicit LogicalOrderText(std::string& out) : TextOutputDev(&append, &out, false, 0, false) {}

  void drawChar(GfxState* state, double x, double y, double dx, double dy, double originX,
                double originY, CharCode code, int bytes, const Unicode* u, int length) override {
    std::array<Unicode, 8> reversed;
    if (length > 1 && static_cast<std::size_t>(length) <= reversed.size() &&
        std::any_of(u, u + length, isRightToLeft) && std::none_of(u, u + length, isLeftToRight)) {
      std::reverse_copy(u, u + length, reversed.begin());
      u = reversed.data();
    }
    TextOutputDev::drawChar(state, x, y, dx, dy, originX, originY, code, bytes, u, length);
  }

 private:
  static void append(void* out, const char* text, int length) {
    static_cast<std::string*>(out)->append(text, static_cast<std::size_t>(length));
  }
};

// The embeddings poppler wraps right-to-left runs in (LRE, RLE, PDF): the text is already in
// logical order, and a search for a word must not meet them.
void removeDirectionMarks(std::string& text) {
  constexpr std::string_view kLead = "\xE2\x80";
  std::size_t kept = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (text.compare(at, kLead.size(), kLead) == 0 && at + 2 < text.size() &&
        static_cast<unsigned char>(text[at + 2]) >= 0xAA &&
        static_cast<unsigned char>(text[at + 2]) <= 0xAC) {
      at += 3;
      continue;
    }
    text[kept++] = text[at++];
  }
  text.resize(kept);
}

bool isPresentationForm(UChar32 c) {
  return (c >= 0xFB00 && c <= 0xFDFF) || (c >= 0xFE70 && c <= 0xFEFF);
}

// Presentation forms, which fonts map their glyphs to: Latin ligatures ("ﬁ"), and the shapes a
// Hebrew or Arabic letter takes at the start, middle or end of a word, and their ligatures. A
// reader searches for the letters they show ("fi").
void usePlainLetters(std::string& text) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  UErrorCode status = U_ZERO_ERROR;
  const icu::Normalizer2* nfkc = nullptr;
  std::string out;
  int32_t copied = 0;
  for (int32_t at = 0; at < length;) {
    const int32_t start = at;
    UChar32 c;
    U8_NEXT(bytes, at, length, c);
    if (!isPresentationForm(c)) continue;
    if (!nfkc) nfkc = icu::Normalizer2::getNFKCInstance(status);
    if (U_FAILURE(status)) return;
    icu::UnicodeString letters = nfkc->normalize(icu::UnicodeString(c), status);
    if (U_FAILURE(status)) return;
    out.append(text, static_cast<std::size_t>(copied), static_cast<std::size_t>(start - copied));
    letters.toUTF8String(out);
    copied = at;
  }
  if (copied == 0) return;
  out.append(text, static_cast<std::size_t>(copied));
  text = std::move(out);
}

std::unique_ptr<PDFDoc> checked(std::unique_ptr<PDFDoc> document) {
  if (!document->isOk()) return nullptr;
  return document;
}

// poppler-cpp sets poppler's globals up while one of its documents is open, as the importers'
// are; this file's tests and fuzzer have none.
void setUpPoppler() {
  if (globalParams) return;
  globalParams = std::make_unique<GlobalParams>();
  globalParams->setTextEncoding("UTF-8");
}

}  // namespace

PageTextReader::PageTextReader(std::unique_ptr<PDFDoc> document) : document_(std::move(document)) {}

PageTextReader::~PageTextReader() = default;

std::unique_ptr<PageTextReader> PageTextReader::fromFile(const std::string& path) {
  setUpPoppler();
  auto document = checked(std::make_unique<PDFDoc>(std::make_unique<GooString>(path)));
  if (!document) return nullptr;
  return std::unique_ptr<PageTextReader>(new PageTextReader(std::move(document)));
}

std::unique_ptr<PageTextReader> PageTextReader::fromBytes(const char* bytes, std::size_t size) {
  setUpPoppler();
  auto* stream = new MemStream(bytes, 0, static_cast<Goffset>(size), Object(objNull));
  auto document = checked(std::make_unique<PDFDoc>(stream));
  if (!document) return nullptr;
  return std::unique_ptr<PageTextReader>(new PageTextReader(std::move(document)));
}

int PageTextReader::pages() const { return document_->getNumPages(); }

std::string PageTextReader::text(int index) {
  std::string text;
  if (index < 0 || index >= pages()) return text;
  {
    LogicalOrderText output(text);
    if (!output.isOk()) return text;
    document_->displayPage(&output, index + 1, 72, 72, 0, false, true, false);
  }
  removeDirectionMarks(text);
  usePlainLetters(text);
  while (!text.empty() && (text.back() == '\f' || text.back() == '\n')) text.pop_back();
  return text;
}

}  // namespace ulvek::plugin
