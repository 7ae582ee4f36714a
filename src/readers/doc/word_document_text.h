#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/text_string.h"
#include "platform/file_bytes.h"

namespace ulvek {

// Where a structure lies in the table stream: its offset and byte count.
struct WordTableEntry {
  std::uint32_t offset = 0;
  std::uint32_t size = 0;
};

// What the File Information Block at the start of a Word document's "WordDocument" stream says
// about the document.
struct WordFileInformation {
  std::uint16_t identifier = 0;  // 0xA5EC from Word 97 on, 0xA5DC in Word 6 and 95
  std::uint16_t version = 0;     // nFib
  bool encrypted = false;
  bool tableStreamOne = false;  // the structures are in "1Table", not "0Table"
  // Characters of the parts, in the order the text holds them.
  std::uint32_t mainCharacters = 0;
  std::uint32_t footnoteCharacters = 0;
  std::uint32_t headerCharacters = 0;
  std::uint32_t macroCharacters = 0;
  std::uint32_t commentCharacters = 0;
  std::uint32_t endnoteCharacters = 0;
  std::uint32_t textBoxCharacters = 0;
  WordTableEntry pieceTable;      // the Clx
  WordTableEntry footnoteMarks;   // PlcffndRef
  WordTableEntry paragraphPages;  // PlcBtePapx
  WordTableEntry lists;           // PlfLst, followed by the lists' levels
  WordTableEntry listOverrides;   // PlfLfo
};

// The block, or nothing when the stream does not start with one.
std::optional<WordFileInformation> readWordFileInformation(Bytes wordDocument);

// Whether the text is stored the way readWordDocumentText reads it: Word 97 or later, not
// encrypted. Word 6 and 95 keep their text in another layout.
bool isReadableWordVersion(const WordFileInformation& information);

class DocumentText;
// Writes what a Word control character stands for, in every Word version: a cell or, where it
// ends a row, the row (0x07); a paragraph, page or section break; a line break; a tab; a
// non-breaking or optional hyphen; a note's mark (0x02). False for the other characters below
// 0x20: pictures, drawn objects, anchors and the like stand for no text.
bool writeWordControl(DocumentText& out, char16_t c, bool rowEnd, std::u16string_view noteMark);

struct WordDocumentText {
  TextString text;
  // What was wrong with the streams, for the log; empty for a sound document.
  std::vector<std::string> damage;
};

// The text as a reader sees it: the main text, then the footnotes, the endnotes and the text
// boxes; paragraphs on lines, table cells a tab apart, list items after their labels, note
// marks by their numbers, fields by their results. Headers, footers and comments are left
// out. Ranges outside the streams are cut off and reported.
WordDocumentText readWordDocumentText(const WordFileInformation& information, Bytes wordDocument,
                                      Bytes table);

}  // namespace ulvek
