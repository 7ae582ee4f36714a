#include "old_word_document.h"

#include <algorithm>
#include <string_view>

#include "readers/doc/word_bytes.h"
#include "readers/doc/word_document_text.h"
#include "readers/xml/document_text.h"
#include "text/encodings.h"

namespace ulvek::oldword {
namespace {

using word::noteDamage;
using word::slice;
using word::u16;
using word::u32;

constexpr std::uint16_t kWord97Identifier = 0xA5EC;
constexpr std::uint16_t kWord6Identifier = 0xA5DC;
constexpr std::uint16_t kWord2Identifier = 0xA5DB;
constexpr std::uint16_t kWord1Identifiers[] = {0xA59B, 0xA59C};  // Windows, OS/2

// The fixed part of the block, the same in all three generations up to the pairs.
constexpr std::size_t kFlagsAt = 0x0A, kLanguageAt = 0x06, kCharacterSetAt = 0x14;
constexpr std::size_t kTextStartAt = 0x18, kTextEndAt = 0x1C, kCharactersAt = 0x34;
constexpr std::size_t kPairsAt = 0x58;
// Entries of the offset-size pairs that are read. Word 1 lacks two of the printer's entries
// before the associated strings.
constexpr std::size_t kFootnoteMarksIndex = 2, kParagraphPagesIndex = 13;
constexpr std::size_t kAssociatedStringsIndex = 32, kPieceTableIndex = 33;
constexpr std::size_t kWord1Missing = 2;

// Windows character sets (the block's chse, as RTF's \fcharset numbers them) → code pages.
constexpr std::pair<int, int> kCharacterSetCodePages[] = {
    {77, 10000}, {128, 932},  {129, 949},  {134, 936},  {136, 950},  {161, 1253}, {162, 1254},
    {163, 1258}, {177, 1255}, {178, 1256}, {186, 1257}, {204, 1251}, {222, 874},  {238, 1250}};

// Languages (the low ten bits of a Windows language identifier) whose Windows code page is not
// 1252. Chinese differs by region, below.
constexpr std::pair<int, int> kLanguageCodePages[] = {
    {0x01, 1256}, {0x02, 1251}, {0x05, 1250}, {0x08, 1253}, {0x0D, 1255}, {0x0E, 1250},
    {0x11, 932},  {0x12, 949},  {0x15, 1250}, {0x18, 1250}, {0x19, 1251}, {0x1A, 1250},
    {0x1B, 1250}, {0x1C, 1250}, {0x1E, 874},  {0x1F, 1254}, {0x20, 1256}, {0x22, 1251},
    {0x23, 1251}, {0x24, 1250}, {0x25, 1257}, {0x26, 1257}, {0x27, 1257}, {0x29, 1256},
    {0x2A, 1258}, {0x2F, 1251}};

// The text's code page: the character set the block names, or where it names the default one,
// the code page of the language Word was made for.
int codePageOf(std::uint16_t characterSet, std::uint16_t language) {
  if (characterSet == 256) return 10000;  // written on a Macintosh
  for (auto [set, codePage] : kCharacterSetCodePages)
    if (set == characterSet) return codePage;
  if (language == 0x0C1A) return 1251;  // Serbian in Cyrillic
  if ((language & 0x3FF) == 0x04)
    return language == 0x0804 || language == 0x1004 ? 936 : 950;  // mainland and Singapore
  for (auto [primary, codePage] : kLanguageCodePages)
    if (primary == (language & 0x3FF)) return codePage;
  return 1252;
}

CFStringEncoding encodingOf(int codePage) {
  if (codePage == 10000) return kCFEncodingMacRoman;
  CFStringEncoding encoding = CFEncodingFromName(fromAscii("cp" + std::to_string(codePage)));
  return encoding == kCFEncodingInvalid ? kCFEncodingWindowsLatin1 : encoding;
}

// A run of characters stored together: characters [start, end) from `offset` on, a byte each.
struct Piece {
  std::uint32_t start = 0;
  std::uint32_t end = 0;
  std::uint32_t offset = 0;
};

std::uint64_t totalCharacters(const FileInformation& information) {
  std::uint64_t total = 0;
  for (std::uint32_t count : information.characters) total += count;
  return total;
}

// The pieces of a fast-saved document, from its piece table; one for the others.
std::vector<Piece> readPieces(const FileInformation& information, Bytes stream,
                              std::vector<std::string>& damage) {
  std::vector<Piece> pieces;
  if (!information.complex) {
    std::uint64_t end = std::min<std::uint64_t>(information.textEnd, stream.size());
    if (information.textStart >= end) {
      noteDamage(damage, "no text inside the stream");
      return pieces;
    }
    std::uint64_t count = std::min(end - information.textStart, totalCharacters(information));
    if (count < totalCharacters(information)) noteDamage(damage, "text longer than the stream");
    if (count > 0) pieces.push_back({0, static_cast<std::uint32_t>(count), information.textStart});
    return pieces;
  }
  std::optional<Bytes> clx =
      slice(stream, information.pieceTable.offset, information.pieceTable.size);
  if (!clx || clx->empty()) {
    noteDamage(damage, "piece table outside the stream");
    return pieces;
  }
  std::size_t at = 0;
  // Property lists (type 1) come first and are skipped; the piece list (type 2) ends it.
  while (at < clx->size() && (*clx)[at] == 1) {
    if (at + 3 > clx->size()) break;
    at += 3 + u16(*clx, at + 1);
  }
  if (at + 5 > clx->size() || (*clx)[at] != 2) {
    noteDamage(damage, "no piece list in the piece table");
    return pieces;
  }
  std::optional<Bytes> list = slice(*clx, at + 5, u32(*clx, at + 1));
  if (!list) {
    noteDamage(damage, "piece list longer than the piece table");
    list = clx->subspan(at + 5);
  }
  if (list->size() < 16) {
    noteDamage(damage, "empty piece list");
    return pieces;
  }
  std::size_t count = (list->size() - 4) / 12;
  std::size_t descriptors = (count + 1) * 4;
  std::uint32_t previousEnd = 0;
  for (std::size_t i = 0; i < count; ++i) {
    Piece piece{u32(*list, i * 4), u32(*list, i * 4 + 4), u32(*list, descriptors + i * 8 + 2)};
    if (piece.start < previousEnd || piece.end <= piece.start) {
      noteDamage(damage, "pieces out of order");
      continue;
    }
    std::uint64_t available = piece.offset < stream.size() ? stream.size() - piece.offset : 0;
    if (piece.end - piece.start > available) {
      noteDamage(damage, "piece outside the stream");
      piece.end = piece.start + static_cast<std::uint32_t>(available);
      if (piece.end == piece.start) continue;
    }
    previousEnd = piece.end;
    pieces.push_back(piece);
  }
  return pieces;
}

// Operand sizes of Word 6 paragraph and table properties by their one-byte codes: 0 unknown,
// kVariable a byte of size first, kLongVariable a 16-bit size first.
constexpr std::uint8_t kVariable = 0xFF, kLongVariable = 0xFE;
constexpr std::array<std::uint8_t, 256> kPropertySizes = [] {
  std::array<std::uint8_t, 256> sizes{};
  constexpr std::uint8_t kParagraph[] = {
      /* 2 */ 2,  kVariable, 1, 1,         1, 1, 1, 1, 1, 1, kVariable, 1, 1, kVariable,
      2,          2,         2, 2,
      /* 20 */ 4, 2,         2, kVariable, 1, 1, 2, 2, 2, 1, 2,         2, 2, 2,
      2,          2,         2, 1,
      /* 38 */ 2, 2,         2, 2,         2, 2, 1, 2, 2, 2, 2,         2, 1, 1};
  for (std::size_t i = 0; i < std::size(kParagraph); ++i) sizes[2 + i] = kParagraph[i];
  constexpr std::uint8_t kTable[] = {
      /* 182 */ 2, 2, 2, 1, 1, 12, kVariable, 2, kLongVariable, kVariable, 4,
      5,           4, 2, 4, 2, 2,  5,         4};
  for (std::size_t i = 0; i < std::size(kTable); ++i) sizes[182 + i] = kTable[i];
  return sizes;
}();

// Paragraph properties of Word 6 and 95, as the stream's pages of them (FKPs) hold them by file
// offset: here only whether a paragraph mark ends a table row.
class ParagraphProperties {
 public:
  ParagraphProperties(const FileInformation& information, Bytes stream) : stream_(stream) {
    if (information.generation != Generation::Word6) return;
    std::optional<Bytes> plc =
        slice(stream, information.paragraphPages.offset, information.paragraphPages.size);
    if (plc && plc->size() >= 10) plc_ = *plc;
  }

  // Whether the mark at `fc` ends a table row; nothing when the properties cannot tell.
  std::optional<bool> endsRow(std::size_t fc) const {
    constexpr std::uint8_t kRowEnd = 25;  // sprmPFTtp
    std::optional<Bytes> properties = at(fc);
    if (!properties) return std::nullopt;
    std::size_t at = 0;
    while (at < properties->size()) {
      std::uint8_t code = (*properties)[at++];
      std::size_t size = kPropertySizes[code];
      if (size == 0) return std::nullopt;  // not known: the rest cannot be walked
      if (size == kVariable) {
        if (at >= properties->size()) break;
        size = (*properties)[at++];
      } else if (size == kLongVariable) {
        if (at + 2 > properties->size()) break;
        size = std::max<std::size_t>(u16(*properties, at), 1) - 1;
        at += 2;
      }
      if (at + size > properties->size()) break;
      if (code == kRowEnd) return size == 1 && (*properties)[at] != 0;
      at += size;
    }
    return false;
  }

 private:
  // The property list of the paragraph holding `fc`, after its style number.
  std::optional<Bytes> at(std::size_t fc) const {
    if (plc_.empty()) return std::nullopt;
    // n + 1 offsets, then n 16-bit page numbers.
    std::size_t count = (plc_.size() - 4) / 6;
    std::optional<std::size_t> entry = word::plcEntryHolding(plc_, count, fc);
    if (!entry) return std::nullopt;
    std::uint64_t page = u16(plc_, (count + 1) * 4 + *entry * 2);
    std::optional<Bytes> fkp = slice(stream_, page * 512, 512);
    if (!fkp) return std::nullopt;
    std::size_t runs = (*fkp)[511];
    // Each run: its offset, then a 7-byte entry whose first byte locates its properties.
    if (runs == 0 || (runs + 1) * 4 + runs * 7 > 511) return std::nullopt;
    for (std::size_t run = 0; run < runs; ++run) {
      if (fc < u32(*fkp, run * 4) || fc >= u32(*fkp, run * 4 + 4)) continue;
      std::size_t at = (*fkp)[(runs + 1) * 4 + run * 7] * 2u;
      if (at == 0) return Bytes();  // no properties
      std::size_t size = (*fkp)[at] * 2u;
      if (size < 2 || at + 1 + size > 511) return std::nullopt;
      return fkp->subspan(at + 3, size - 2);
    }
    return std::nullopt;
  }

  Bytes stream_;
  Bytes plc_;
};

// Bytes of the text → DocumentText: fields by their results, cells and rows, special
// characters; runs of ordinary bytes decoded in the document's code page (in the double-byte
// code pages no byte of a character falls below 0x20, where the marks are).
class TextWriter {
 public:
  TextWriter(int codePage, const ParagraphProperties& paragraphs)
      : encoding_(encodingOf(codePage)), paragraphs_(paragraphs) {}

  void startPart() {
    flush();
    fields_.clear();
    codeDepth_ = 0;
    lastWasCell_ = false;
    out_.paragraph();
  }

  void add(std::uint8_t c, std::size_t fc, std::string_view footnoteMark) {
    if (c >= 0x20) {
      if (codeDepth_ == 0) run_.push_back(static_cast<char>(c)), lastWasCell_ = false;
      return;
    }
    flush();
    switch (c) {
      case 0x13:  // field begin: its code follows
        fields_.push_back(true);
        ++codeDepth_;
        return;
      case 0x14:  // field separator: its result follows
        if (!fields_.empty() && fields_.back()) fields_.back() = false, --codeDepth_;
        return;
      case 0x15:  // field end
        if (!fields_.empty()) {
          if (fields_.back()) --codeDepth_;
          fields_.pop_back();
        }
        return;
    }
    if (codeDepth_ > 0) return;
    bool cell = c == 0x07;
    bool rowEnd = cell && paragraphs_.endsRow(fc).value_or(lastWasCell_);
    lastWasCell_ = cell && !rowEnd;
    writeWordControl(out_, c, rowEnd, c == 0x02 ? fromAscii(footnoteMark) : TextString());
  }

  TextString take() {
    flush();
    return out_.take();
  }

 private:
  void flush() {
    if (run_.empty()) return;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(run_.data());
    out_.writeText(convertBytes(Bytes(bytes, run_.size()), encoding_));
    run_.clear();
  }

  CFStringEncoding encoding_;
  const ParagraphProperties& paragraphs_;
  DocumentText out_;
  std::string run_;           // bytes not yet decoded
  std::vector<bool> fields_;  // open fields, innermost last: whether still in their code
  std::size_t codeDepth_ = 0;
  bool lastWasCell_ = false;
};

// Character positions of the main text's auto-numbered footnote marks, looked up where the
// stream lists them (in order) rather than copied: the list may claim most of the stream.
class FootnoteMarks {
 public:
  FootnoteMarks(const FileInformation& information, Bytes stream) {
    std::optional<Bytes> plc =
        slice(stream, information.footnoteMarks.offset, information.footnoteMarks.size);
    if (plc && plc->size() >= 10) plc_ = *plc, count_ = (plc->size() - 4) / 6;
  }

  bool contains(std::uint64_t cp) const {
    std::size_t low = 0, high = count_;
    while (low < high) {
      std::size_t middle = (low + high) / 2;
      if (u32(plc_, middle * 4) < cp)
        low = middle + 1;
      else
        high = middle;
    }
    return low < count_ && u32(plc_, low * 4) == cp;
  }

 private:
  Bytes plc_;
  std::size_t count_ = 0;
};

}  // namespace

std::optional<FileInformation> readFileInformation(Bytes stream) {
  if (stream.size() < 4) return std::nullopt;
  FileInformation information;
  information.identifier = u16(stream, 0);
  information.version = u16(stream, 2);
  std::size_t pairSize = 8, missing = 0;
  if (information.identifier == kWord97Identifier) {
    information.generation = Generation::Word97;
    return information;
  } else if (information.identifier == kWord6Identifier) {
    information.generation = Generation::Word6;
  } else if (information.identifier == kWord2Identifier) {
    information.generation = Generation::Word2;
    pairSize = 6;
  } else if (std::find(std::begin(kWord1Identifiers), std::end(kWord1Identifiers),
                       information.identifier) != std::end(kWord1Identifiers)) {
    information.generation = Generation::Word1;
    pairSize = 6, missing = kWord1Missing;
  } else {
    return std::nullopt;
  }
  if (stream.size() < kPairsAt) return std::nullopt;
  std::uint16_t flags = u16(stream, kFlagsAt);
  information.complex = (flags & 0x0004) != 0;
  information.encrypted = (flags & 0x0100) != 0;
  information.codePage = codePageOf(u16(stream, kCharacterSetAt), u16(stream, kLanguageAt));
  information.textStart = u32(stream, kTextStartAt);
  information.textEnd = u32(stream, kTextEndAt);
  for (std::size_t part = 0; part < kParts; ++part)
    information.characters[part] = u32(stream, kCharactersAt + part * 4);
  if (information.generation != Generation::Word6) {
    // Word 1 and 2 have no endnotes or text boxes: those longs are spare.
    information.characters[Endnotes] = information.characters[TextBoxes] = 0;
  }
  auto entryAt = [&](std::size_t index) {
    std::size_t at = kPairsAt + index * pairSize;
    if (at + pairSize > stream.size()) return Entry{};
    return Entry{u32(stream, at), pairSize == 8 ? u32(stream, at + 4) : u16(stream, at + 4)};
  };
  information.footnoteMarks = entryAt(kFootnoteMarksIndex);
  information.paragraphPages = entryAt(kParagraphPagesIndex);
  information.associatedStrings = entryAt(kAssociatedStringsIndex - missing);
  information.pieceTable = entryAt(kPieceTableIndex - missing);
  return information;
}

Text readText(const FileInformation& information, Bytes stream) {
  Text result;
  if (information.generation == Generation::Word97 || information.encrypted) return result;
  std::vector<Piece> pieces = readPieces(information, stream, result.damage);
  std::uint32_t piecesEnd = pieces.empty() ? 0 : pieces.back().end;
  ParagraphProperties paragraphs(information, stream);
  FootnoteMarks marks(information, stream);
  TextWriter writer(information.codePage, paragraphs);

  constexpr bool kRead[kParts] = {true, true, false, false, false, true, true};
  std::uint64_t start = 0;
  // A sound document stores every character in a byte of its own.
  std::uint64_t budget = stream.size();
  int footnotes = 0;
  for (std::size_t part = 0; part < kParts && start < piecesEnd; ++part) {
    std::uint64_t end = start + information.characters[part];
    if (end > piecesEnd) {
      noteDamage(result.damage, "text longer than its pieces");
      end = piecesEnd;
    }
    if (kRead[part] && end > start) {
      if (end - start > budget) {
        noteDamage(result.damage, "pieces overlap");
        end = start + budget;
      }
      budget -= end - start;
      writer.startPart();
      auto piece = std::upper_bound(pieces.begin(), pieces.end(), start,
                                    [](std::uint64_t cp, const Piece& p) { return cp < p.end; });
      for (; piece != pieces.end() && piece->start < end; ++piece) {
        std::uint64_t from = std::max<std::uint64_t>(start, piece->start);
        std::uint64_t to = std::min<std::uint64_t>(end, piece->end);
        for (std::uint64_t cp = from; cp < to; ++cp) {
          std::size_t fc = piece->offset + (cp - piece->start);
          std::uint8_t c = stream[fc];
          // The main text's note marks show the note's number, as Word shows it.
          std::string number;
          if (c == 0x02 && part == Main && marks.contains(cp)) number = std::to_string(++footnotes);
          writer.add(c, fc, number);
        }
      }
    }
    start = end;
  }
  result.text = writer.take();
  return result;
}

AssociatedStrings readAssociatedStrings(const FileInformation& information, Bytes stream) {
  AssociatedStrings strings;
  if (information.generation == Generation::Word97 || information.encrypted) return strings;
  std::optional<Bytes> table =
      slice(stream, information.associatedStrings.offset, information.associatedStrings.size);
  if (!table || table->size() < 2) return strings;
  // Its byte count (itself included), then strings of a length byte and that many bytes.
  std::size_t end = std::min<std::size_t>(u16(*table, 0), table->size());
  TextString* wanted[] = {nullptr,           nullptr,           &strings.title, &strings.subject,
                          &strings.keywords, &strings.comments, &strings.author};
  CFStringEncoding encoding = encodingOf(information.codePage);
  std::size_t at = 2;
  for (TextString* string : wanted) {
    if (at >= end) break;
    std::size_t length = (*table)[at];
    if (at + 1 + length > end) break;
    if (string) *string = convertBytes(table->subspan(at + 1, length), encoding);
    at += 1 + length;
  }
  return strings;
}

}  // namespace ulvek::oldword
