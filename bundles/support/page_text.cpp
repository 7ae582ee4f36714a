// A PDF page's text, through poppler's core text output; its API changes between versions, and only
// this file uses it.

#include "pdf_document.h"

#include <poppler/GfxFont.h>
#include <poppler/GfxState.h>
#include <poppler/GlobalParams.h>
#include <poppler/PDFDoc.h>
#include <poppler/Stream.h>
#include <poppler/TextOutputDev.h>
#include <poppler/UTF.h>
#include <poppler/goo/GooString.h>
#include <poppler/goo/gmem.h>
#include <unicode/normalizer2.h>
#include <unicode/ubidi.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/uscript.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace ulvek::plugin {
namespace {

bool isRightToLeft(Unicode c) {
  const UCharDirection direction = u_charDirection(static_cast<UChar32>(c));
  return direction == U_RIGHT_TO_LEFT || direction == U_RIGHT_TO_LEFT_ARABIC;
}

bool isLeftToRight(Unicode c) {
  return u_charDirection(static_cast<UChar32>(c)) == U_LEFT_TO_RIGHT;
}

bool isNonspacingMark(Unicode c) {
  return u_charType(static_cast<UChar32>(c)) == U_NON_SPACING_MARK;
}

// poppler spreads the characters of one glyph left to right over its width, then reads a
// right-to-left run from its right end: a lam-alef ligature, "لا", would come out "ال", and
// "إلى" as "إىل". Such a glyph's characters are handed to poppler backwards, so that they come
// out as the document wrote them.
//
// Writers that lay out right-to-left text with HarfBuzz (LibreOffice among them) draw a mark
// such as shadda before the letter it sits on, often raised or lowered on a baseline of its own;
// poppler then makes it a word of its own ("الح ّية"). A mark glyph is therefore held back, and
// given to the right-to-left letter drawn next where that letter lies under it ("الحيّة");
// otherwise it is drawn where it was, before the next glyph. A span's ActualText, which such
// writers give a ligature with its marks, is handed over backwards like a glyph's characters.
class LogicalOrderText : public TextOutputDev {
 public:
  explicit LogicalOrderText(std::string& out) : TextOutputDev(&append, &out, false, 0, false) {}

  void startPage(int page, GfxState* state, XRef* xref) override {
    held_.reset();
    TextOutputDev::startPage(page, state, xref);
  }
  void updateFont(GfxState* state) override {
    // Writers set the font again before each positioned glyph; only another font draws the mark.
    if (held_ && state->getFont().get() != held_->font) drawHeld(state);
    TextOutputDev::updateFont(state);
  }
  void restoreState(GfxState* state) override {
    drawHeld(state);
    TextOutputDev::restoreState(state);
  }
  void endTextObject(GfxState* state) override { drawHeld(state); }
  void beginActualText(GfxState* state, const GooString* text) override {
    drawHeld(state);
    std::optional<GooString> backwards = reversedIfRightToLeft(*text);
    TextOutputDev::beginActualText(state, backwards ? &*backwards : text);
  }
  void endActualText(GfxState* state) override {
    drawHeld(state);
    TextOutputDev::endActualText(state);
  }

  void drawChar(GfxState* state, double x, double y, double dx, double dy, double originX,
                double originY, CharCode code, int bytes, const Unicode* u, int length) override {
    if (length > 0 && std::all_of(u, u + length, isNonspacingMark)) {
      drawHeld(state);
      held_ = Glyph{x, y, dx, dy, originX, originY, code, bytes, {u, u + length}, nullptr};
      held_->font = state->getFont().get();
      return;
    }
    if (held_ && carries(*held_, x, dx, u, length)) {
      std::vector<Unicode> letters(u, u + length);
      letters.insert(letters.end(), held_->text.begin(), held_->text.end());
      held_.reset();
      draw(state, x, y, dx, dy, originX, originY, code, bytes, letters.data(),
           static_cast<int>(letters.size()));
      return;
    }
    drawHeld(state);
    draw(state, x, y, dx, dy, originX, originY, code, bytes, u, length);
  }

 private:
  struct Glyph {
    double x, y, dx, dy, originX, originY;
    CharCode code;
    int bytes;
    std::vector<Unicode> text;
    const GfxFont* font;  // compared only
  };

  // Whether the letter drawn at `x` with advance `dx` is the one under `mark`.
  static bool carries(const Glyph& mark, double x, double dx, const Unicode* u, int length) {
    if (std::none_of(u, u + length, isRightToLeft) || std::any_of(u, u + length, isLeftToRight))
      return false;
    const double width = std::abs(dx);
    return mark.x >= x - width && mark.x <= x + width * 1.1;
  }

  // A UTF-16 text string (with its byte order mark) of right-to-left characters, backwards.
  static std::optional<GooString> reversedIfRightToLeft(const GooString& text) {
    if ((!text.hasUnicodeMarker() && !text.hasUnicodeMarkerLE()) || text.getLength() % 2 != 0)
      return std::nullopt;
    Unicode* characters = nullptr;
    const int count = TextStringToUCS4(text.toStr(), &characters);
    const std::vector<Unicode> letters(characters, characters + count);
    gfree(characters);
    if (letters.size() < 2 || std::none_of(letters.begin(), letters.end(), isRightToLeft) ||
        std::any_of(letters.begin(), letters.end(), isLeftToRight))
      return std::nullopt;
    icu::UnicodeString backwards;
    for (auto c = letters.rbegin(); c != letters.rend(); ++c)
      backwards.append(static_cast<UChar32>(*c));
    std::string out = "\xFE\xFF";
    for (int32_t at = 0; at < backwards.length(); ++at) {
      out += static_cast<char>(backwards.charAt(at) >> 8);
      out += static_cast<char>(backwards.charAt(at) & 0xFF);
    }
    return GooString(std::move(out));
  }

  void drawHeld(GfxState* state) {
    if (!held_) return;
    Glyph mark = std::move(*held_);
    held_.reset();
    draw(state, mark.x, mark.y, mark.dx, mark.dy, mark.originX, mark.originY, mark.code, mark.bytes,
         mark.text.data(), static_cast<int>(mark.text.size()));
  }

  void draw(GfxState* state, double x, double y, double dx, double dy, double originX,
            double originY, CharCode code, int bytes, const Unicode* u, int length) {
    std::array<Unicode, 16> reversed;
    if (length > 1 && static_cast<std::size_t>(length) <= reversed.size() &&
        std::any_of(u, u + length, isRightToLeft) && std::none_of(u, u + length, isLeftToRight)) {
      std::reverse_copy(u, u + length, reversed.begin());
      u = reversed.data();
    }
    TextOutputDev::drawChar(state, x, y, dx, dy, originX, originY, code, bytes, u, length);
  }

  static void append(void* out, const char* text, int length) {
    static_cast<std::string*>(out)->append(text, static_cast<std::size_t>(length));
  }

  std::optional<Glyph> held_;
};

bool isEmbedding(UChar32 c) { return c >= 0x202A && c <= 0x202C; }  // LRE, RLE, PDF

bool hasEmbedding(std::string_view utf8) {
  for (std::size_t at = utf8.find("\xE2\x80"); at != std::string_view::npos;
       at = utf8.find("\xE2\x80", at + 1)) {
    if (at + 2 < utf8.size() && utf8[at + 2] >= '\xAA' && utf8[at + 2] <= '\xAC') return true;
  }
  return false;
}

// A line as poppler writes it: the runs of the direction that is not the page's main one
// wrapped in embeddings (LRE or RLE ... PDF), each in the order it is read, and the runs laid out
// in the page's direction. The line as it stands on the page, left to right, is got back by
// reversing what the right-to-left embeddings reversed.
class EmbeddedLine {
 public:
  explicit EmbeddedLine(const icu::UnicodeString& line) {
    // poppler nests two deep; a document's own characters can nest thousands deep, which
    // reading them back must not follow.
    constexpr std::size_t kDeepest = 16;
    std::vector<std::size_t> open{0};
    std::size_t ignored = 0;
    runs_.push_back({false, {}});
    for (int32_t at = 0; at < line.length();) {
      const UChar32 c = line.char32At(at);
      at += U16_LENGTH(c);
      if ((c == 0x202A || c == 0x202B) && (ignored > 0 || open.size() > kDeepest)) {
        ++ignored;
      } else if (c == 0x202A || c == 0x202B) {
        runs_.push_back({c == 0x202B, {}});
        runs_[open.back()].parts.push_back({{}, runs_.size() - 1});
        open.push_back(runs_.size() - 1);
      } else if (c == 0x202C) {
        if (ignored > 0)
          --ignored;
        else if (open.size() > 1)
          open.pop_back();
      } else {
        std::vector<Part>& parts = runs_[open.back()].parts;
        if (parts.empty() || parts.back().run != 0) parts.push_back({});
        parts.back().text.append(c);
      }
    }
  }

  icu::UnicodeString leftToRight() const {
    icu::UnicodeString out;
    append(0, out);
    return out;
  }

 private:
  struct Part {
    icu::UnicodeString text;
    std::size_t run = 0;  // an embedded run, or 0 for text
  };
  struct Run {
    bool rightToLeft;
    std::vector<Part> parts;
  };

  void append(std::size_t run, icu::UnicodeString& out) const {
    const Run& r = runs_[run];
    auto one = [&](const Part& part) {
      if (part.run != 0) return append(part.run, out);
      if (!r.rightToLeft) return void(out.append(part.text));
      icu::UnicodeString backwards(part.text);
      out.append(backwards.reverse());
    };
    if (r.rightToLeft)
      std::for_each(r.parts.rbegin(), r.parts.rend(), one);
    else
      std::for_each(r.parts.begin(), r.parts.end(), one);
  }

  std::vector<Run> runs_;
};

// poppler sometimes loses the space where the direction changes ("وPython"); the embeddings
// are then all that part the words. Between a letter or digit and another, a space goes in,
// outside both runs: after the embeddings that close, before the ones that open.
icu::UnicodeString withSpacesAtDirectionChanges(const icu::UnicodeString& line) {
  icu::UnicodeString out;
  for (int32_t at = 0; at < line.length();) {
    const UChar32 c = line.char32At(at);
    if (!isEmbedding(c)) {
      out.append(c);
      at += U16_LENGTH(c);
      continue;
    }
    int32_t end = at;
    while (end < line.length() && isEmbedding(line.charAt(end))) ++end;
    int32_t opening = at;
    while (opening < end && line.charAt(opening) == 0x202C) ++opening;
    const UChar32 before = out.isEmpty() ? 0 : out.char32At(out.length() - 1);
    const UChar32 after = end < line.length() ? line.char32At(end) : 0;
    out.append(line, at, opening - at);
    if (u_isalnum(before) && u_isalnum(after)) out.append(u' ');
    out.append(line, opening, end - opening);
    at = end;
  }
  return out;
}

// The lines of a page, and its paragraphs: runs of lines up to an empty one, as [first, last).
struct PageLines {
  explicit PageLines(std::string_view text) {
    for (std::size_t start = 0; start <= text.size();) {
      std::size_t end = std::min(text.find('\n', start), text.size());
      lines.push_back(text.substr(start, end - start));
      start = end + 1;
    }
    for (std::size_t first = 0; first < lines.size();) {
      std::size_t last = first;
      while (last < lines.size() && !lines[last].empty()) ++last;
      if (last > first) paragraphs.emplace_back(first, last);
      first = last + 1;
    }
  }

  // The lines joined again, with a line feed after each but the last, none where `joined`.
  std::string text(const std::vector<bool>& joined) const {
    std::string out;
    for (std::size_t index = 0; index < lines.size(); ++index) {
      out.append(lines[index]);
      if (index + 1 < lines.size() && !joined[index]) out += '\n';
    }
    return out;
  }

  std::vector<std::string_view> lines;
  std::vector<std::pair<std::size_t, std::size_t>> paragraphs;
};

// Calls `each` with every character of UTF-8 `text`; ill-formed bytes are passed over.
template <typename Each>
void forEachCharacter(std::string_view text, Each each) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
  const auto length = static_cast<int32_t>(text.size());
  for (int32_t at = 0; at < length;) {
    UChar32 c;
    U8_NEXT(bytes, at, length, c);
    if (c >= 0) each(c);
  }
}

// Letters of `text` that read left to right, less those that read right to left.
int32_t leftToRightLead(std::string_view text) {
  int32_t lead = 0;
  forEachCharacter(text, [&](UChar32 c) {
    if (isLeftToRight(static_cast<Unicode>(c))) ++lead;
    if (isRightToLeft(static_cast<Unicode>(c))) --lead;
  });
  return lead;
}

// `line` (as it stands, left to right) in the order it is read, by ICU's bidirectional
// algorithm run in reverse; numbers read as left-to-right text, as poppler took them.
icu::UnicodeString readingOrder(const icu::UnicodeString& line, bool rightToLeft) {
  UErrorCode status = U_ZERO_ERROR;
  std::unique_ptr<UBiDi, decltype(&ubidi_close)> bidi(ubidi_open(), ubidi_close);
  ubidi_setReorderingMode(bidi.get(), UBIDI_REORDER_INVERSE_NUMBERS_AS_L);
  ubidi_setPara(bidi.get(), line.getBuffer(), line.length(), rightToLeft ? 1 : 0, nullptr, &status);
  icu::UnicodeString out;
  const int32_t capacity = line.length() * 2 + 8;
  const int32_t length = ubidi_writeReordered(bidi.get(), out.getBuffer(capacity), capacity,
                                              UBIDI_REMOVE_BIDI_CONTROLS, &status);
  out.releaseBuffer(U_SUCCESS(status) ? length : 0);
  if (U_FAILURE(status)) return line;
  // Neutral characters settle on either side of a change of direction: no run of spaces.
  for (int32_t at = out.indexOf(u"  "); at >= 0; at = out.indexOf(u"  ", at)) out.remove(at, 1);
  return out;
}

// poppler lays the runs of a line out in the page's main direction and wraps the others in
// embeddings for display: an Arabic or Hebrew paragraph on a mostly Latin page came out with its
// runs left to right ("1256-ويندوز" for "ويندوز-1256"), and spaces and commas fell on the wrong
// side of a run ("بالسرطان ،علينا"). Lines with embeddings are therefore put back as they stand on
// the page and read again by ICU, right to left in a paragraph (lines up to an empty one) with more
// letters that read that way. The embeddings go.
void putLinesInReadingOrder(std::string& text) {
  if (!hasEmbedding(text)) return;
  const PageLines page(text);
  const std::vector<std::string_view>& lines = page.lines;
  std::vector<bool> rightToLeft(lines.size(), false);
  for (auto [first, last] : page.paragraphs) {
    int32_t lead = 0;
    for (std::size_t at = first; at < last; ++at) lead += leftToRightLead(lines[at]);
    std::fill(rightToLeft.begin() + first, rightToLeft.begin() + last, lead < 0);
  }
  std::string out;
  out.reserve(text.size());
  for (std::size_t index = 0; index < lines.size(); ++index) {
    if (index > 0) out += '\n';
    std::string_view line = lines[index];
    if (!hasEmbedding(line)) {
      out.append(line);
      continue;
    }
    icu::UnicodeString embedded = withSpacesAtDirectionChanges(icu::UnicodeString::fromUTF8(
        icu::StringPiece(line.data(), static_cast<int32_t>(line.size()))));
    readingOrder(EmbeddedLine(embedded).leftToRight(), rightToLeft[index]).toUTF8String(out);
  }
  text = std::move(out);
}

bool isPresentationForm(UChar32 c) {
  return (c >= 0xFB00 && c <= 0xFDFF) || (c >= 0xFE70 && c <= 0xFEFF);
}

// Presentation forms, which fonts map their glyphs to: Latin ligatures ("ﬁ"), and the shapes a
// Hebrew or Arabic letter takes at the start, middle or end of a word, and their ligatures. A
// reader searches for the letters they show ("fi").
void usePlainLetters(std::string& text) {
  // Every presentation form begins with the byte EF in UTF-8; most pages have none.
  if (text.find('\xEF') == std::string::npos) return;
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

// Chinese and Japanese are written without spaces, and a line may break inside a word: the
// characters at either end of such a break, ideographs, kana and their punctuation.
bool isUnspacedScript(UChar32 c) {
  UErrorCode status = U_ZERO_ERROR;
  const UScriptCode script = uscript_getScript(c, &status);
  if (script == USCRIPT_HAN || script == USCRIPT_HIRAGANA || script == USCRIPT_KATAKANA)
    return true;
  const auto block = static_cast<UBlockCode>(ublock_getCode(c));
  return block == UBLOCK_CJK_SYMBOLS_AND_PUNCTUATION ||
         block == UBLOCK_HALFWIDTH_AND_FULLWIDTH_FORMS;
}

// How wide `line` is set, in half-width columns.
int32_t columns(std::string_view line) {
  int32_t width = 0;
  forEachCharacter(line, [&](UChar32 c) {
    const auto east = u_getIntPropertyValue(c, UCHAR_EAST_ASIAN_WIDTH);
    width += east == U_EA_WIDE || east == U_EA_FULLWIDTH ? 2 : 1;
  });
  return width;
}

UChar32 firstCharacter(std::string_view line) {
  if (line.empty()) return 0;
  UChar32 c;
  int32_t at = 0;
  U8_NEXT(reinterpret_cast<const uint8_t*>(line.data()), at, static_cast<int32_t>(line.size()), c);
  return c;
}

UChar32 lastCharacter(std::string_view line) {
  if (line.empty()) return 0;
  UChar32 c;
  auto at = static_cast<int32_t>(line.size());
  U8_PREV(reinterpret_cast<const uint8_t*>(line.data()), 0, at, c);
  return c;
}

// A paragraph of Chinese or Japanese comes out one line a printed line, as pdftotext gives it,
// and a word cut by the line's end cannot be found ("住みにく" / "い"). A line that runs to its
// block's full width, ends in such a character and is followed by a line that begins with one
// is the middle of a paragraph: the next line is joined to it, without a space. Shorter lines
// end paragraphs (and headings); Korean, which has spaces, keeps its lines.
void joinWrappedLines(std::string& text) {
  const PageLines page(text);
  const std::vector<std::string_view>& lines = page.lines;
  std::vector<bool> joined(lines.size(), false);  // joined to the line after it
  bool any = false;
  for (auto [first, last] : page.paragraphs) {
    // Widths are measured only where a line could go on: most pages have no such line.
    int32_t widest = -1;
    for (std::size_t at = first; at + 1 < last; ++at) {
      if (!isUnspacedScript(lastCharacter(lines[at])) ||
          !isUnspacedScript(firstCharacter(lines[at + 1])))
        continue;
      if (widest < 0) {
        for (std::size_t line = first; line < last; ++line)
          widest = std::max(widest, columns(lines[line]));
      }
      joined[at] = columns(lines[at]) * 10 >= widest * 9;
      any = any || joined[at];
    }
  }
  if (any) text = page.text(joined);
}

}  // namespace

std::string PdfDocument::text(int index) {
  std::string text;
  if (index < 0 || index >= pages()) return text;
  {
    LogicalOrderText output(text);
    if (!output.isOk()) return text;
    document_->displayPage(&output, index + 1, 72, 72, 0, false, true, false);
  }
  putLinesInReadingOrder(text);
  usePlainLetters(text);
  joinWrappedLines(text);
  while (!text.empty() && (text.back() == '\f' || text.back() == '\n')) text.pop_back();
  return text;
}

}  // namespace ulvek::plugin
