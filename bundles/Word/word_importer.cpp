// Word.mdimporter: the Word documents that ulvekbot's own Word reader leaves alone. Word 6 and
// Word 95 documents (OLE2 containers) give their text and their summary information (title,
// subject, author, keywords, comments, dates); Word for Windows 1 and 2 files (no container)
// give their text and the title and author they keep themselves. Of a Word 97 or later
// document that reached it (encrypted, say) it reads the summary information only.

#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "importer_plugin.h"
#include "old_word_document.h"
#include "readers/doc/ole_container.h"
#include "readers/xml/document_text.h"

namespace {

using ulvek::plugin::Attributes;
namespace oldword = ulvek::oldword;

// Far beyond any document these versions wrote (Word 6 stops at 32 MiB of text).
constexpr std::uintmax_t kLargestFile = 256u << 20;

constexpr std::uint8_t kOLEMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

std::vector<std::uint8_t> readFile(const char* path) {
  std::ifstream in(path, std::ios::binary | std::ios::ate);
  if (!in) throw std::runtime_error("cannot open the file");
  std::streamoff size = in.tellg();
  if (size < 0 || static_cast<std::uintmax_t>(size) > kLargestFile)
    throw std::runtime_error("too large for a Word document of these versions");
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
  in.seekg(0);
  if (!in.read(reinterpret_cast<char*>(bytes.data()), size))
    throw std::runtime_error("cannot read the file");
  return bytes;
}

double secondsOf(ulvek::Date date) { return static_cast<double>(date.microseconds) / 1e6; }

std::vector<std::string> utf8List(const ulvek::TextList& list) {
  std::vector<std::string> items;
  for (const ulvek::TextString& item : list) items.push_back(ulvek::toUtf8(item));
  return items;
}

// What the summary information says; true when it named a title or author.
bool writeSummary(ulvek::OleContainer& container, Attributes& out) {
  ulvek::OleSummary summary = ulvek::summaryOf(container);
  if (summary.creation) out.date("kMDItemContentCreationDate", secondsOf(*summary.creation));
  if (summary.modification)
    out.date("kMDItemContentModificationDate", secondsOf(*summary.modification));
  if (summary.title) out.string("kMDItemTitle", *summary.title);
  if (summary.author) out.strings("kMDItemAuthors", {*summary.author});
  if (summary.subject) out.string("kMDItemSubject", *summary.subject);
  if (summary.description) out.string("kMDItemDescription", *summary.description);
  if (summary.keywords)
    out.strings("kMDItemKeywords", utf8List(ulvek::keywordWords(*summary.keywords)));
  return summary.title || summary.author;
}

void writeAssociatedStrings(const oldword::AssociatedStrings& strings, Attributes& out) {
  using ulvek::toUtf8;
  out.string("kMDItemTitle", toUtf8(strings.title));
  out.string("kMDItemSubject", toUtf8(strings.subject));
  out.string("kMDItemDescription", toUtf8(strings.comments));
  if (!strings.author.empty()) out.strings("kMDItemAuthors", {toUtf8(strings.author)});
  if (!strings.keywords.empty())
    out.strings("kMDItemKeywords", utf8List(ulvek::keywordWords(toUtf8(strings.keywords))));
}

// The text of a Word 1, 2, 6 or 95 stream; damage is told on the log, with the text kept.
void writeText(const oldword::FileInformation& information, ulvek::Bytes stream, const char* path,
               Attributes& out) {
  if (information.encrypted) throw std::runtime_error("encrypted");
  oldword::Text text = oldword::readText(information, stream);
  if (!text.damage.empty())
    std::fprintf(stderr, "damaged document %s: %s\n", path, text.damage.front().c_str());
  out.string("kMDItemTextContent", ulvek::toUtf8(text.text));
}

bool importWord(Attributes& out, const char*, const char* path) {
  std::vector<std::uint8_t> bytes = readFile(path);
  ulvek::Bytes file(bytes);
  if (file.size() < sizeof kOLEMagic || std::memcmp(file.data(), kOLEMagic, 8) != 0) {
    // Word 1 and 2 write no container: the file is the stream.
    std::optional<oldword::FileInformation> information = oldword::readFileInformation(file);
    if (!information || (information->generation != oldword::Generation::Word1 &&
                         information->generation != oldword::Generation::Word2))
      throw std::runtime_error("not a Word document");
    writeAssociatedStrings(oldword::readAssociatedStrings(*information, file), out);
    writeText(*information, file, path, out);
    return true;
  }

  std::string why;
  std::unique_ptr<ulvek::OleContainer> container =
      ulvek::openOleContainer(file.data(), file.size(), why);
  if (!container) throw std::runtime_error(why);
  std::optional<std::vector<std::uint8_t>> stream = container->stream("WordDocument", file.size());
  if (!stream) throw std::runtime_error("no WordDocument stream");
  std::optional<oldword::FileInformation> information = oldword::readFileInformation(*stream);
  if (!information || information->generation == oldword::Generation::Word1 ||
      information->generation == oldword::Generation::Word2)
    throw std::runtime_error("no file information block");
  bool named = writeSummary(*container, out);
  // The text of Word 97 and later is the built-in reader's to give.
  if (information->generation == oldword::Generation::Word97) return true;
  if (!named) {
    oldword::AssociatedStrings strings = oldword::readAssociatedStrings(*information, *stream);
    strings.subject.clear(), strings.keywords.clear(), strings.comments.clear();
    writeAssociatedStrings(strings, out);
  }
  writeText(*information, *stream, path, out);
  return true;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekWordImporterFactory, importWord)
