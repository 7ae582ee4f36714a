#pragma once

// Word for Windows 1 and 2, Word 6 and Word 95 documents: their File Information Block, their
// text and the strings they keep about themselves. Word 6 and 95 keep everything in the
// "WordDocument" stream of an OLE2 container; Word 1 and 2 files are that stream alone.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "base/text_string.h"
#include "platform/file_bytes.h"

namespace ulvek::oldword {

enum class Generation { Word1, Word2, Word6, Word97 };

// Where a structure lies in the stream: its offset and byte count.
struct Entry {
  std::uint32_t offset = 0;
  std::uint32_t size = 0;
};

// The parts of the text, in the order the stream holds them.
enum Part : std::size_t { Main, Footnotes, Headers, Macros, Comments, Endnotes, TextBoxes };
inline constexpr std::size_t kParts = 7;

struct FileInformation {
  Generation generation = Generation::Word6;
  std::uint16_t identifier = 0;  // wIdent
  std::uint16_t version = 0;     // nFib
  bool encrypted = false;
  bool complex = false;         // fast-saved: the text is in pieces listed by the piece table
  int codePage = 1252;          // of the text and the strings; 10000 is Mac Roman
  std::uint32_t textStart = 0;  // fcMin
  std::uint32_t textEnd = 0;    // fcMac
  std::array<std::uint32_t, kParts> characters{};
  Entry pieceTable;         // Clx
  Entry footnoteMarks;      // PlcffndRef
  Entry paragraphPages;     // PlcfbtePapx
  Entry associatedStrings;  // SttbfAssoc: title, author, ...
};

// The block at the start of `stream`, or nothing when it is none of these generations or too
// short to hold one. Word 97 and later are recognised but not read further.
std::optional<FileInformation> readFileInformation(Bytes stream);

struct Text {
  TextString text;
  // What was wrong with the stream, for the log; empty for a sound document.
  std::vector<std::string> damage;
};

// The main text, then footnotes, endnotes and text boxes: paragraphs on lines, table cells a tab
// apart, fields by their results, footnote marks by their numbers. Headers, footers and
// comments are left out; ranges outside the stream are cut off and reported.
Text readText(const FileInformation& information, Bytes stream);

// The document's own record of its title, subject, keywords, comments and author, which Word 1
// and 2 keep instead of a summary information stream; empty strings where it has none.
struct AssociatedStrings {
  TextString title, subject, keywords, comments, author;
};
AssociatedStrings readAssociatedStrings(const FileInformation& information, Bytes stream);

}  // namespace ulvek::oldword
