#include "readers/doc/word_document_text.h"

#include <algorithm>
#include <array>
#include <map>
#include <mutex>
#include <set>

#include "base/deadline.h"
#include "readers/doc/word_bytes.h"
#include "readers/xml/document_text.h"
#include "text/encodings.h"

namespace ulvek {
namespace {

constexpr std::uint16_t kWord97Identifier = 0xA5EC;
constexpr std::uint16_t kWord6Identifier = 0xA5DC;
// nFib of Word 97; Word 6 writes 101 and Word 95 104.
constexpr std::uint16_t kWord97Version = 0xC0;

using word::noteDamage;
using word::slice;
using word::u16;
using word::u32;

// Entries of the FIB's long and offset arrays that we read.
enum LongIndex : std::size_t {
  kCcpText = 3,
  kCcpFtn,
  kCcpHdd,
  kCcpMcr,
  kCcpAtn,
  kCcpEdn,
  kCcpTxbx
};
enum TableIndex : std::size_t {
  kPlcffndRef = 2,
  kPlcBtePapx = 13,
  kClx = 33,
  kPlfLst = 73,
  kPlfLfo = 74
};

// Text compressed to one byte a character is Windows code page 1252.
const std::array<char16_t, 256>& compressedCharacters() {
  static std::array<char16_t, 256> table;
  static std::once_flag built;
  std::call_once(built, [] {
    // All 256 bytes through one converter, one character each; bytes the code page leaves
    // undefined stand for themselves.
    std::array<std::uint8_t, 256> bytes;
    for (unsigned byte = 0; byte < 256; ++byte) bytes[byte] = static_cast<std::uint8_t>(byte);
    TextString all = convertBytes(Bytes(bytes.data(), bytes.size()), kCFEncodingWindowsLatin1);
    for (unsigned byte = 0; byte < 256; ++byte) {
      TextString decoded = all.size() == 256
                               ? TextString(1, all[byte])
                               : convertBytes(Bytes(&bytes[byte], 1), kCFEncodingWindowsLatin1);
      table[byte] = decoded.size() == 1 && decoded[0] != u'\uFFFD' ? decoded[0] : char16_t(byte);
    }
  });
  return table;
}

// A run of characters stored together: characters [start, end) at `offset` in the stream.
struct Piece {
  std::uint32_t start = 0;
  std::uint32_t end = 0;
  std::uint32_t offset = 0;
  bool compressed = false;
};

class PieceTable {
 public:
  PieceTable(const WordFileInformation& information, Bytes wordDocument, Bytes table,
             std::vector<std::string>& damage)
      : stream_(wordDocument) {
    std::optional<Bytes> clx =
        slice(table, information.pieceTable.offset, information.pieceTable.size);
    if (!clx || clx->empty()) {
      noteDamage(damage, "piece table outside the table stream");
      return;
    }
    std::size_t at = 0;
    // Property lists (type 1) come first and are skipped; the piece list (type 2) ends it.
    while (at < clx->size() && (*clx)[at] == 1) {
      if (at + 3 > clx->size()) break;
      at += 3 + u16(*clx, at + 1);
    }
    if (at + 5 > clx->size() || (*clx)[at] != 2) {
      noteDamage(damage, "no piece list in the piece table");
      return;
    }
    std::uint32_t size = u32(*clx, at + 1);
    std::optional<Bytes> pieces = slice(*clx, at + 5, size);
    if (!pieces) {
      noteDamage(damage, "piece list longer than the piece table");
      pieces = clx->subspan(at + 5);
    }
    if (pieces->size() < 16) {
      noteDamage(damage, "empty piece list");
      return;
    }
    std::size_t count = (pieces->size() - 4) / 12;
    std::size_t descriptors = (count + 1) * 4;
    std::uint32_t previousEnd = 0;
    for (std::size_t i = 0; i < count; ++i) {
      Piece piece;
      piece.start = u32(*pieces, i * 4);
      piece.end = u32(*pieces, i * 4 + 4);
      std::uint32_t fc = u32(*pieces, descriptors + i * 8 + 2);
      piece.compressed = (fc & 0x40000000u) != 0;
      piece.offset = piece.compressed ? (fc & 0x3FFFFFFFu) / 2 : fc & 0x3FFFFFFFu;
      if (piece.start < previousEnd || piece.end <= piece.start) {
        noteDamage(damage, "pieces out of order");
        continue;
      }
      std::uint64_t width = piece.compressed ? 1 : 2;
      std::uint64_t available =
          piece.offset < stream_.size() ? (stream_.size() - piece.offset) / width : 0;
      if (piece.end - piece.start > available) {
        noteDamage(damage, "piece outside the document stream");
        piece.end = piece.start + static_cast<std::uint32_t>(available);
        if (piece.end == piece.start) continue;
      }
      previousEnd = piece.end;
      pieces_.push_back(piece);
    }
  }

  std::uint32_t end() const { return pieces_.empty() ? 0 : pieces_.back().end; }

  // Calls visit(cp, character, fc) for the characters of [start, end) that the pieces hold.
  template <typename Visit>
  void forEach(std::uint32_t start, std::uint32_t end, Visit visit) const {
    const auto& table = compressedCharacters();
    auto piece = std::upper_bound(pieces_.begin(), pieces_.end(), start,
                                  [](std::uint32_t cp, const Piece& p) { return cp < p.end; });
    for (; piece != pieces_.end() && piece->start < end; ++piece) {
      std::uint32_t from = std::max(start, piece->start), to = std::min(end, piece->end);
      for (std::uint32_t cp = from; cp < to; ++cp) {
        if (readingTimeIsUp()) return;
        std::size_t index = cp - piece->start;
        if (piece->compressed) {
          std::size_t fc = piece->offset + index;
          visit(cp, table[stream_[fc]], fc);
        } else {
          std::size_t fc = piece->offset + index * 2;
          visit(cp, static_cast<char16_t>(u16(stream_, fc)), fc);
        }
      }
    }
  }

 private:
  Bytes stream_;
  std::vector<Piece> pieces_;
};

// Calls visit(sprm, operand) for each property of a property list (grpprl).
template <typename Visit>
void forEachProperty(Bytes properties, Visit visit) {
  constexpr std::uint16_t kTableDefinition = 0xD608;
  // Operand sizes by the top three bits of the property's code; 0: the size comes first.
  constexpr std::uint8_t kOperandSizes[8] = {1, 1, 2, 4, 2, 2, 0, 3};
  std::size_t at = 0;
  while (at + 2 < properties.size()) {
    std::uint16_t sprm = u16(properties, at);
    at += 2;
    std::size_t size = kOperandSizes[sprm >> 13];
    std::size_t operand = at;
    if (size == 0 && sprm == kTableDefinition) {
      if (at + 2 > properties.size()) return;
      operand = at + 2, size = std::max<std::size_t>(u16(properties, at), 1) - 1;
    } else if (size == 0) {
      operand = at + 1, size = properties[at];
    }
    if (operand + size > properties.size()) return;
    visit(sprm, properties.subspan(operand, size));
    at = operand + size;
  }
}

// A paragraph's place in a list: the list format override (1-based) and the level.
struct ListItem {
  std::uint16_t override = 0;
  std::uint8_t level = 0;
};

// Paragraph properties, as the document stream's pages of them (FKPs) hold them by file offset.
class ParagraphProperties {
 public:
  ParagraphProperties(const WordFileInformation& information, Bytes wordDocument, Bytes table)
      : stream_(wordDocument) {
    std::optional<Bytes> plc =
        slice(table, information.paragraphPages.offset, information.paragraphPages.size);
    if (plc && plc->size() >= 12) plc_ = *plc;
  }

  // Whether the mark at `fc` ends a table row; nothing when the properties cannot tell.
  std::optional<bool> endsRow(std::size_t fc) const {
    constexpr std::uint16_t kRowEnd = 0x2417, kInnerRowEnd = 0x244C;
    std::optional<Bytes> properties = at(fc);
    if (!properties) return std::nullopt;
    bool rowEnd = false;
    forEachProperty(*properties, [&](std::uint16_t sprm, Bytes operand) {
      if ((sprm == kRowEnd || sprm == kInnerRowEnd) && !operand.empty() && operand[0] != 0)
        rowEnd = true;
    });
    return rowEnd;
  }

  // The list the paragraph with the character at `fc` belongs to, if any.
  std::optional<ListItem> listItem(std::size_t fc) const {
    constexpr std::uint16_t kListOverride = 0x460B, kListLevel = 0x260A;
    std::optional<Bytes> properties = at(fc);
    if (!properties) return std::nullopt;
    ListItem item;
    forEachProperty(*properties, [&](std::uint16_t sprm, Bytes operand) {
      if (sprm == kListOverride && operand.size() == 2) item.override = u16(operand, 0);
      if (sprm == kListLevel && operand.size() == 1) item.level = operand[0];
    });
    if (item.override == 0 || item.override >= 0xF801) return std::nullopt;
    return item;
  }

 private:
  // The property list of the paragraph holding `fc`, after its style number.
  std::optional<Bytes> at(std::size_t fc) const {
    if (plc_.empty()) return std::nullopt;
    std::size_t count = (plc_.size() - 4) / 8;
    std::optional<std::size_t> entry = word::plcEntryHolding(plc_, count, fc);
    if (!entry) return std::nullopt;
    std::uint64_t page = u32(plc_, (count + 1) * 4 + *entry * 4) & 0x3FFFFFu;
    std::optional<Bytes> fkp = slice(stream_, page * 512, 512);
    if (!fkp) return std::nullopt;
    return inPage(*fkp, fc);
  }

  static std::optional<Bytes> inPage(Bytes fkp, std::size_t fc) {
    std::size_t runs = fkp[511];
    if (runs == 0 || (runs + 1) * 4 + runs * 13 > 511) return std::nullopt;
    for (std::size_t run = 0; run < runs; ++run) {
      if (fc < u32(fkp, run * 4) || fc >= u32(fkp, run * 4 + 4)) continue;
      std::size_t at = fkp[(runs + 1) * 4 + run * 13] * 2u;
      if (at == 0) return Bytes();  // no properties
      std::size_t start = at + 1, size = fkp[at] * 2u - 1;
      if (fkp[at] == 0) {
        if (at + 1 >= 511) return std::nullopt;
        start = at + 2, size = fkp[at + 1] * 2u;
      }
      if (start + size > 511 || size < 2) return std::nullopt;
      return fkp.subspan(start + 2, size - 2);
    }
    return std::nullopt;
  }

  Bytes stream_;
  Bytes plc_;
};

// List labels as the list tables define them: per list, a counter for each of nine levels.
class ListLabels {
 public:
  ListLabels(const WordFileInformation& information, Bytes table) {
    readLists(table, information.lists);
    std::optional<Bytes> overrides =
        slice(table, information.listOverrides.offset, information.listOverrides.size);
    if (!overrides || overrides->size() < 4) return;
    std::uint64_t count = std::min<std::uint64_t>(u32(*overrides, 0), (overrides->size() - 4) / 16);
    for (std::size_t i = 0; i < count; ++i)
      overrideLists_.push_back({.list = u32(*overrides, 4 + i * 16)});
    // After the overrides, each one's levels (LFOData): a start value, or a level of its own.
    std::size_t at = std::size_t(information.listOverrides.offset) + 4 + count * 16;
    for (std::size_t i = 0; i < count; ++i) {
      std::size_t levels = (*overrides)[4 + i * 16 + 12];
      at += 4;  // the field position, unused
      for (std::size_t level = 0; level < levels; ++level) {
        std::optional<Bytes> fixed = slice(table, at, 8);
        if (!fixed) return;
        std::uint32_t flags = u32(*fixed, 4);
        std::size_t which = flags & 0x0F;
        at += 8;
        if ((flags & 0x10) && which < kListLevels)  // fStartAt
          overrideLists_[i].starts[which] =
              static_cast<int>(std::min<std::uint32_t>(u32(*fixed, 0), 1000000));
        if ((flags & 0x20) && !readLevel(table, at)) return;  // fFormatting: an LVL follows
      }
    }
  }

  // The label of the next item of `item`'s list at its level, as the paragraph's prefix.
  TextString next(const ListItem& item) {
    if (item.override > overrideLists_.size() || item.level >= kListLevels) return {};
    Override& override = overrideLists_[item.override - 1];
    auto list = lists_.find(override.list);
    if (list == lists_.end()) return {};
    List& found = list->second;
    // An override that starts a level at a value restarts the list where it is first used.
    if (!override.used) {
      override.used = true;
      for (std::size_t level = 0; level < kListLevels; ++level)
        if (override.starts[level]) found.counters.restart(level, *override.starts[level]);
    }
    // A simple list has one level, which every level uses.
    std::size_t level = item.level < found.count ? item.level : 0;
    if (level >= found.count) return {};
    return listLabelPrefix(found.counters.next(found.levels, level), level);
  }

 private:
  static constexpr std::uint8_t kBullet = 23, kNone = 255;

  struct List {
    std::array<ListLevel, kListLevels> levels;
    std::size_t count = 0;
    ListCounters counters;
  };

  // The list definitions (LSTF, 28 bytes each) and after them each list's levels (LVL).
  void readLists(Bytes table, const WordTableEntry& entry) {
    std::optional<Bytes> plf = slice(table, entry.offset, entry.size);
    if (!plf || plf->size() < 2) return;
    std::size_t count = std::min<std::size_t>(u16(*plf, 0), (plf->size() - 2) / 28);
    std::size_t at = std::size_t(entry.offset) + 2 + count * 28;
    for (std::size_t i = 0; i < count; ++i) {
      Bytes definition = plf->subspan(2 + i * 28, 28);
      std::size_t levelCount = (definition[26] & 1) ? 1 : 9;  // fSimpleList
      List list;
      for (std::size_t level = 0; level < levelCount; ++level) {
        std::optional<ListLevel> read = readLevel(table, at);
        if (!read) break;
        list.levels[list.count++] = std::move(*read);
      }
      lists_[u32(definition, 0)] = std::move(list);
    }
  }

  static std::optional<ListLevel> readLevel(Bytes table, std::size_t& at) {
    std::optional<Bytes> fixed = slice(table, at, 28);
    if (!fixed) return std::nullopt;
    ListLevel level;
    level.start = static_cast<int>(std::min<std::uint32_t>(u32(*fixed, 0), 1000000));
    std::uint8_t nfc = (*fixed)[4];
    level.kind = nfc == kBullet ? ListLevel::Kind::Bullet
                 : nfc == kNone ? ListLevel::Kind::None
                                : ListLevel::Kind::Number;
    level.format = wordNumberFormat(nfc);
    level.legal = ((*fixed)[5] & 0x04) != 0;
    at += 28 + (*fixed)[24] + (*fixed)[25];  // the level's character and paragraph properties
    std::optional<Bytes> count = slice(table, at, 2);
    if (!count) return std::nullopt;
    std::optional<Bytes> text = slice(table, at + 2, u16(*count, 0) * 2u);
    if (!text) return std::nullopt;
    for (std::size_t i = 0; i < text->size(); i += 2) level.pattern += char16_t(u16(*text, i));
    at += 2 + text->size();
    return level;
  }

  std::map<std::uint32_t, List> lists_;  // by list identifier
  struct Override {
    std::uint32_t list = 0;  // its list's identifier
    std::array<std::optional<int>, kListLevels> starts;
    bool used = false;
  };
  std::vector<Override> overrideLists_;
};

// An equation field has no result: what it shows is in its code. Phonetic guides are written
// as EQ \o\ad(\s\up 9(guide),base text) and show the base text, as do other overstrikes.
TextString equationText(TextView code) {
  std::size_t start = code.find_first_not_of(u' ');
  if (start == TextView::npos || code.substr(start, 2) != u"EQ") return {};
  std::size_t overstrike = code.find(u"\\o", start);
  std::size_t open = overstrike == TextView::npos ? overstrike : code.find(u'(', overstrike);
  if (open == TextView::npos) return {};
  std::size_t depth = 0, argument = open + 1;
  for (std::size_t at = open + 1; at < code.size(); ++at) {
    if (code[at] == u'(') {
      ++depth;
    } else if (code[at] == u')') {
      if (depth-- == 0) return TextString(code.substr(argument, at - argument));
    } else if (code[at] == u',' && depth == 0) {
      argument = at + 1;
    }
  }
  return {};
}

// Characters → DocumentText: fields by their results, cells and rows, special characters.
class TextWriter {
 public:
  TextWriter(DocumentText& out, const ParagraphProperties& paragraphs, ListLabels& lists)
      : out_(out), paragraphs_(paragraphs), lists_(lists) {}

  // Starts a part of the document (main text, notes): fields and cells do not run across.
  void startPart() {
    fields_.clear();
    codeDepth_ = 0;
    lastWasCell_ = false;
    paragraphStart_ = true;
    out_.paragraph();
  }

  void add(char16_t c, std::size_t fc, std::u16string_view footnoteMark) {
    // A list item's label stands before its first character, as Word shows it.
    if (paragraphStart_ && c != 0x0D && c != 0x07) {
      if (std::optional<ListItem> item = paragraphs_.listItem(fc)) {
        TextString label = lists_.next(*item);
        out_.writeText(label.substr(0, kLongestLabel));
      }
    }
    paragraphStart_ = c == 0x0D || c == 0x07 || c == 0x0C;
    switch (c) {
      case 0x13:  // field begin: its code follows
        fields_.push_back({});
        ++codeDepth_;
        return;
      case 0x14:  // field separator: its result follows
        if (!fields_.empty() && fields_.back().inCode) fields_.back().inCode = false, --codeDepth_;
        return;
      case 0x15:  // field end
        if (!fields_.empty()) {
          Field field = std::move(fields_.back());
          fields_.pop_back();
          if (field.inCode && --codeDepth_ == 0) out_.writeText(equationText(field.code));
        }
        return;
    }
    if (codeDepth_ > 0) {
      Field& field = fields_.back();
      if (field.inCode && field.code.size() < kLongestCode) field.code += c;
      return;
    }
    bool cell = c == 0x07;
    bool rowEnd = false;
    if (cell) rowEnd = paragraphs_.endsRow(fc).value_or(lastWasCell_);
    lastWasCell_ = cell && !rowEnd;
    if (writeWordControl(out_, c, rowEnd, footnoteMark) || c < 0x20) return;
    out_.character(c);
  }

 private:
  DocumentText& out_;
  const ParagraphProperties& paragraphs_;
  ListLabels& lists_;
  bool paragraphStart_ = true;
  struct Field {
    bool inCode = true;  // before the separator
    TextString code;
  };
  static constexpr std::size_t kLongestCode = 4096;
  static constexpr std::size_t kLongestLabel = 128;
  std::vector<Field> fields_;  // open fields, innermost last
  std::size_t codeDepth_ = 0;
  bool lastWasCell_ = false;
};

// Character positions of the main text's auto-numbered footnote marks.
std::set<std::uint32_t> footnoteMarks(const WordFileInformation& information, Bytes table) {
  std::set<std::uint32_t> marks;
  std::optional<Bytes> plc =
      slice(table, information.footnoteMarks.offset, information.footnoteMarks.size);
  if (!plc || plc->size() < 10) return marks;
  std::size_t count = (plc->size() - 4) / 6;
  for (std::size_t i = 0; i < count; ++i) marks.insert(u32(*plc, i * 4));
  return marks;
}

}  // namespace

std::optional<WordFileInformation> readWordFileInformation(Bytes wordDocument) {
  if (wordDocument.size() < 0x22) return std::nullopt;
  WordFileInformation information;
  information.identifier = u16(wordDocument, 0);
  if (information.identifier != kWord97Identifier && information.identifier != kWord6Identifier)
    return std::nullopt;
  information.version = u16(wordDocument, 2);
  std::uint16_t flags = u16(wordDocument, 0x0A);
  information.encrypted = (flags & 0x0100) != 0;
  information.tableStreamOne = (flags & 0x0200) != 0;
  if (!isReadableWordVersion(information)) return information;

  // Three arrays follow, each after its count: 16-bit, 32-bit and offset-size pairs.
  std::size_t shorts = u16(wordDocument, 0x20);
  std::size_t longsAt = 0x22 + shorts * 2;
  if (longsAt + 2 > wordDocument.size()) return information;
  std::size_t longs = u16(wordDocument, longsAt);
  longsAt += 2;
  auto longAt = [&](std::size_t index) -> std::uint32_t {
    std::size_t at = longsAt + index * 4;
    return index < longs && at + 4 <= wordDocument.size() ? u32(wordDocument, at) : 0;
  };
  information.mainCharacters = longAt(kCcpText);
  information.footnoteCharacters = longAt(kCcpFtn);
  information.headerCharacters = longAt(kCcpHdd);
  information.macroCharacters = longAt(kCcpMcr);
  information.commentCharacters = longAt(kCcpAtn);
  information.endnoteCharacters = longAt(kCcpEdn);
  information.textBoxCharacters = longAt(kCcpTxbx);

  std::size_t pairsAt = longsAt + longs * 4;
  if (pairsAt + 2 > wordDocument.size()) return information;
  std::size_t pairs = u16(wordDocument, pairsAt);
  pairsAt += 2;
  auto entryAt = [&](std::size_t index) {
    std::size_t at = pairsAt + index * 8;
    if (index >= pairs || at + 8 > wordDocument.size()) return WordTableEntry{};
    return WordTableEntry{u32(wordDocument, at), u32(wordDocument, at + 4)};
  };
  information.pieceTable = entryAt(kClx);
  information.footnoteMarks = entryAt(kPlcffndRef);
  information.paragraphPages = entryAt(kPlcBtePapx);
  information.lists = entryAt(kPlfLst);
  information.listOverrides = entryAt(kPlfLfo);
  return information;
}

bool isReadableWordVersion(const WordFileInformation& information) {
  return information.identifier == kWord97Identifier && information.version >= kWord97Version &&
         !information.encrypted;
}

bool writeWordControl(DocumentText& out, char16_t c, bool rowEnd, std::u16string_view noteMark) {
  switch (c) {
    case 0x07:
      rowEnd ? out.paragraph() : out.cell();
      return true;
    case 0x0D:
    case 0x0C:  // page and section breaks
      out.paragraph();
      return true;
    case 0x0B:
      out.character(u'\n');
      return true;
    case 0x09:
      out.character(u'\t');
      return true;
    case 0x1E:
      out.character(u'\u2011');
      return true;
    case 0x1F:
      out.character(u'\u00AD');
      return true;
    case 0x02:
      out.writeText(noteMark);
      return true;
  }
  return false;
}

WordDocumentText readWordDocumentText(const WordFileInformation& information, Bytes wordDocument,
                                      Bytes table) {
  WordDocumentText result;
  PieceTable pieces(information, wordDocument, table, result.damage);
  ParagraphProperties paragraphs(information, wordDocument, table);
  ListLabels lists(information, table);
  std::set<std::uint32_t> marks = footnoteMarks(information, table);
  DocumentText text;
  TextWriter writer(text, paragraphs, lists);

  // The parts lie one after the other; headers, macros and comments are skipped.
  const std::uint64_t lengths[] = {information.mainCharacters,    information.footnoteCharacters,
                                   information.headerCharacters,  information.macroCharacters,
                                   information.commentCharacters, information.endnoteCharacters,
                                   information.textBoxCharacters};
  constexpr bool kRead[] = {true, true, false, false, false, true, true};
  std::uint64_t start = 0;
  // A sound document stores every character in at least one byte of its stream.
  std::uint64_t budget = wordDocument.size();
  int footnotes = 0;
  for (std::size_t part = 0; part < std::size(lengths); ++part) {
    std::uint64_t end = start + lengths[part];
    if (end > pieces.end()) {
      if (lengths[part] > 0) noteDamage(result.damage, "text longer than its pieces");
      end = pieces.end();
    }
    if (kRead[part] && end > start) {
      if (end - start > budget) {
        noteDamage(result.damage, "pieces overlap");
        end = start + budget;
      }
      budget -= end - start;
      writer.startPart();
      bool main = part == 0;
      pieces.forEach(static_cast<std::uint32_t>(start), static_cast<std::uint32_t>(end),
                     [&](std::uint32_t cp, char16_t c, std::size_t fc) {
                       // The main text's note marks show the note's number, as Word shows it.
                       TextString number;
                       if (c == 0x02 && main && marks.count(cp))
                         number = fromAscii(std::to_string(++footnotes));
                       writer.add(c, fc, number);
                     });
    }
    if (end >= pieces.end()) break;
    start = end;
  }
  result.text = text.take();
  return result;
}

}  // namespace ulvek
