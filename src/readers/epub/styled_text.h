#pragma once

#include <string>
#include <vector>

#include "base/text_string.h"

namespace ulvek {

// How a run of text looks: the styles a reader of a book sees and RTF can carry.
struct TextStyle {
  bool bold = false;
  bool italic = false;
  int heading = 0;   // 1-6 inside <h1>-<h6>, else 0
  std::string link;  // the href of the enclosing link, as written; empty outside links
  bool operator==(const TextStyle&) const = default;
};

struct StyledRun {
  TextString text;
  TextStyle style;
};

// Text as runs of one style each; paragraphs end with "\n".
struct StyledText {
  std::vector<StyledRun> runs;
  // The text without styles.
  TextString string() const;
};

// The visible text of HTML with its bold, italic, heading and link styles: text runs with white
// space collapsed (kept inside <pre>), block elements as paragraph breaks, <br> as a line break,
// head, script and style contents left out, character references converted.
StyledText styledTextFromHtml(TextView html);

// An RTF document of the runs: "{\rtf1" ..., headings as bold larger text, links as HYPERLINK
// fields, characters outside ASCII as \u escapes.
std::string rtfString(const StyledText& text);

}  // namespace ulvek
