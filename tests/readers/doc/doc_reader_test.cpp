// Word 97–2003 documents: the text rules on streams made here, containers made with libgsf, the
// project's documents in tests/data/wordprocessor/doc against the text and summary information
// beside them, damaged streams and containers, and the document corpus against its reference
// texts and summary information.

#include <gsf/gsf.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "base/deadline.h"
#include "fixture_files.h"
#include "reader_output_printer.h"
#include "readers/doc/word_document_reader.h"
#include "readers/doc/word_document_text.h"
#include "readers/xml/document_text.h"
#include "test_support.h"
#include "word_bag.h"

// libgsf drops a property value when a summary information stream is malformed (the damaged
// containers below have such streams). Its frames show only with the slow unwinder, under
// which the leak is suppressed; these hooks take effect in sanitizer builds only.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
extern "C" const char* __lsan_default_suppressions() {
  return "leak:gsf_doc_meta_data_read_from_msole\n";
}

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using Buffer = std::vector<std::uint8_t>;

constexpr std::uint8_t kOLEMagicForTests[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

void put16(Buffer& bytes, std::size_t at, std::uint32_t value) {
  if (bytes.size() < at + 2) bytes.resize(at + 2);
  bytes[at] = std::uint8_t(value), bytes[at + 1] = std::uint8_t(value >> 8);
}

void put32(Buffer& bytes, std::size_t at, std::uint32_t value) {
  put16(bytes, at, value & 0xFFFF);
  put16(bytes, at + 2, value >> 16);
}

// One run of text as a piece stores it: one byte a character (Windows-1252) or UTF-16.
struct PieceText {
  std::u16string text;
  bool compressed = false;
};

// The two streams of a Word 97 document, FIB, piece table and text, as Word lays them out.
struct WordStreams {
  Buffer wordDocument;
  Buffer table;
};

constexpr std::size_t kLongs = 0x40, kPairs = 0x9A;

WordStreams makeStreams(const std::vector<PieceText>& pieces, std::uint32_t footnoteCharacters = 0,
                        std::vector<std::uint32_t> footnoteMarks = {}) {
  WordStreams streams;
  Buffer& fib = streams.wordDocument;
  fib.assign(1024, 0);
  put16(fib, 0, 0xA5EC);
  put16(fib, 2, 193);
  put16(fib, 0x20, 14);
  put16(fib, 0x3E, 22);
  put16(fib, 0x98, 93);
  std::vector<std::uint32_t> cps{0}, fcs;
  for (const PieceText& piece : pieces) {
    std::uint32_t offset = std::uint32_t(fib.size());
    for (char16_t c : piece.text) {
      if (piece.compressed) {
        fib.push_back(std::uint8_t(c));
      } else {
        fib.push_back(std::uint8_t(c)), fib.push_back(std::uint8_t(c >> 8));
      }
    }
    fcs.push_back(piece.compressed ? (offset * 2) | 0x40000000u : offset);
    cps.push_back(cps.back() + std::uint32_t(piece.text.size()));
  }
  put32(fib, kLongs + 3 * 4, cps.back() - footnoteCharacters);
  put32(fib, kLongs + 4 * 4, footnoteCharacters);

  Buffer& table = streams.table;
  table = {1, 2, 0, 0xAA, 0xBB};  // a property list, skipped
  std::size_t clx = 0;
  table.push_back(2);
  std::size_t size = cps.size() * 4 + fcs.size() * 8;
  put32(table, table.size(), std::uint32_t(size));
  for (std::uint32_t cp : cps) put32(table, table.size(), cp);
  for (std::uint32_t fc : fcs) {
    std::size_t at = table.size();
    put16(table, at, 0);
    put32(table, at + 2, fc);
    put16(table, at + 6, 0);
  }
  put32(fib, kPairs + 33 * 8, std::uint32_t(clx));
  put32(fib, kPairs + 33 * 8 + 4, std::uint32_t(table.size() - clx));
  if (!footnoteMarks.empty()) {
    std::size_t at = table.size();
    for (std::uint32_t cp : footnoteMarks) put32(table, table.size(), cp);
    put32(table, table.size(), cps.back());
    for (std::size_t i = 0; i < footnoteMarks.size(); ++i) put16(table, table.size(), 1);
    put32(fib, kPairs + 2 * 8, std::uint32_t(at));
    put32(fib, kPairs + 2 * 8 + 4, std::uint32_t(table.size() - at));
  }
  return streams;
}

WordDocumentText textOf(const WordStreams& streams) {
  std::optional<WordFileInformation> information = readWordFileInformation(streams.wordDocument);
  if (!information) return {u"(no file information)", {}};
  return readWordDocumentText(*information, streams.wordDocument, streams.table);
}

TEST(WordDocumentText, CharacterRules) {
  struct Row {
    const char* name;
    std::vector<PieceText> pieces;
    std::u16string text;
  };
  const Row rows[] = {
      {"paragraphs", {{u"One\rTwo\r"}}, u"One\nTwo"},
      {"breaks and tabs", {{u"a\vb\fc\td\r"}}, u"a\nb\nc\td"},
      {"field result kept, code dropped",
       {{u"see \x13 HYPERLINK \"x\" \x14link\x15 end\r"}},
       u"see link end"},
      {"nested fields", {{u"\x13 IF \x13 MERGEFIELD a \x14v\x15 = 1 \x14yes\x15!\r"}}, u"yes!"},
      {"field without result",
       {{u"a\x13 PAGE \x15"
         u"b\r"}},
       u"ab"},
      {"unbalanced field ends",
       {{u"a\x15\x14"
         u"b\r"}},
       u"ab"},
      {"table cells and rows",
       {{u"a\x07"
         u"b\x07\x07"
         u"c\x07"
         u"d\x07\x07"
         u"after\r"}},
       u"a\tb\nc\td\nafter"},
      {"equation shows its base text",
       {{u"\x13 EQ \\* jc2 \\o\\ad(\\s\\up 9(guide),Base)\x15!\r"}},
       u"Base!"},
      {"other fields without result", {{u"\x13 EQ \\f(1,2)\x15\x13 TIME\x15.\r"}}, u"."},
      {"objects and anchors dropped", {{u"x\x01\x08\x05\x03\x04y\r"}}, u"xy"},
      {"hyphens and spaces",
       {{u"a\x1E"
         u"b\x1F"
         u"c\u00A0d\r"}},
       u"a\u2011b\u00ADc\u00A0d"},
      {"compressed Windows-1252", {{u"\x93q\x94 \x80 \x85", true}}, u"\u201Cq\u201D \u20AC \u2026"},
      {"compressed and Unicode pieces",
       {{u"caf", true}, {u"\u00E9 \u65E5"}, {u" ok\r", true}},
       u"caf\u00E9 \u65E5 ok"},
      {"surrogate pairs", {{u"\U0001034C\r"}}, u"\U0001034C"},
  };
  for (const Row& row : rows) {
    WordDocumentText text = textOf(makeStreams(row.pieces));
    EXPECT_EQ(text.text, row.text) << row.name;
    EXPECT_TRUE(text.damage.empty()) << row.name << ": " << text.damage[0];
  }
}

TEST(WordDocumentText, NotesFollowTheBody) {
  // Main text "Body*.\r" with the mark at 4, then the note "* A note.\r".
  std::u16string main = u"Body\x02.\r", note = u"\x02 A note.\r";
  WordDocumentText text = textOf(makeStreams({{main + note}}, std::uint32_t(note.size()), {4}));
  EXPECT_EQ(text.text, u"Body1.\n A note.");
}

TEST(WordDocumentText, FileInformation) {
  WordStreams streams = makeStreams({{u"x\r"}});
  struct Row {
    const char* name;
    std::uint16_t identifier, version, flags;
    bool readable;
  };
  const Row rows[] = {
      {"Word 97", 0xA5EC, 193, 0, true},
      {"Word 2003", 0xA5EC, 268, 0, true},
      {"Word 6", 0xA5DC, 101, 0, false},
      {"Word 95", 0xA5DC, 104, 0, false},
      {"early version number", 0xA5EC, 104, 0, false},
      {"encrypted", 0xA5EC, 193, 0x0100, false},
      {"table in 1Table", 0xA5EC, 193, 0x0200, true},
  };
  for (const Row& row : rows) {
    put16(streams.wordDocument, 0, row.identifier);
    put16(streams.wordDocument, 2, row.version);
    put16(streams.wordDocument, 0x0A, row.flags);
    std::optional<WordFileInformation> information = readWordFileInformation(streams.wordDocument);
    ASSERT_TRUE(information) << row.name;
    EXPECT_EQ(isReadableWordVersion(*information), row.readable) << row.name;
    EXPECT_EQ(information->tableStreamOne, (row.flags & 0x0200) != 0) << row.name;
  }
  put16(streams.wordDocument, 0, 0x1234);
  EXPECT_FALSE(readWordFileInformation(streams.wordDocument));
  EXPECT_FALSE(readWordFileInformation(Buffer(0x21, 0)));
}

TEST(WordDocumentText, DamagedStreamsAnswerLess) {
  struct Row {
    const char* name;
    void (*damage)(WordStreams&);
    std::u16string text;
  };
  const Row rows[] = {
      {"piece table beyond the table stream",
       [](WordStreams& s) { put32(s.wordDocument, kPairs + 33 * 8, 1u << 30); }, u""},
      {"piece table size beyond the table stream",
       [](WordStreams& s) { put32(s.wordDocument, kPairs + 33 * 8 + 4, 0xFFFFFFFF); }, u""},
      {"no piece list", [](WordStreams& s) { s.table[5] = 7; }, u""},
      {"piece list size larger than the table",
       [](WordStreams& s) { put32(s.table, 6, 0x7FFFFFFF); }, u"Hello\nworld"},
      {"piece beyond the document stream",
       [](WordStreams& s) { put32(s.table, 6 + 4 + 8 + 2, 0x3FFFFFFF); }, u""},
      {"piece running past the end", [](WordStreams& s) { s.wordDocument.resize(1024 + 3); },
       u"Hel"},
      {"main text longer than the pieces",
       [](WordStreams& s) { put32(s.wordDocument, kLongs + 12, 0xFFFFFFF0); }, u"Hello\nworld"},
      {"pieces out of order", [](WordStreams& s) { put32(s.table, 14, 0); }, u""},
      {"property list running off", [](WordStreams& s) { put16(s.table, 1, 0xFFFF); }, u""},
  };
  for (const Row& row : rows) {
    WordStreams streams = makeStreams({{u"Hello\rworld\r", true}});
    row.damage(streams);
    WordDocumentText text = textOf(streams);
    EXPECT_EQ(text.text, row.text) << row.name;
    EXPECT_FALSE(text.damage.empty()) << row.name;
  }
}

TEST(WordDocumentText, OverlappingPiecesStayBounded) {
  // Ten thousand pieces that all name the same 1,000 characters.
  WordStreams streams = makeStreams({{std::u16string(1000, u'x'), true}});
  streams.table.assign(5, 0);
  streams.table[0] = 2;
  const std::uint32_t count = 10000;
  put32(streams.table, 1, (count + 1) * 4 + count * 8);
  for (std::uint32_t i = 0; i <= count; ++i) put32(streams.table, streams.table.size(), i * 1000);
  for (std::uint32_t i = 0; i < count; ++i) {
    std::size_t at = streams.table.size();
    put16(streams.table, at, 0);
    put32(streams.table, at + 2, (1024 * 2) | 0x40000000u);
    put16(streams.table, at + 6, 0);
  }
  put32(streams.wordDocument, kPairs + 33 * 8 + 4, std::uint32_t(streams.table.size()));
  put32(streams.wordDocument, kLongs + 12, count * 1000);
  WordDocumentText text = textOf(streams);
  EXPECT_LE(text.text.size(), streams.wordDocument.size());
  EXPECT_FALSE(text.damage.empty());
}

TEST(WordDocumentText, APassedDeadlineKeepsTheTextSoFar) {
  std::u16string body;
  for (int i = 0; i < 20000; ++i) body += u"word " + std::u16string(1, u'a' + i % 26) + u"\r";
  body += u"END\r";
  WordStreams streams = makeStreams({{body, true}});
  for (const testing::DeadlineCase& row : testing::kDeadlineCases) {
    SCOPED_TRACE(row.name);
    testing::CapturedLog log;
    ReadingDeadline deadline(row.limit);
    std::u16string text = textOf(streams).text;
    EXPECT_EQ(text.find(u"END") != std::u16string::npos, row.whole);
    EXPECT_EQ(log.contains("Time limit reached"), !row.whole);
  }
}

// ---- Containers ------------------------------------------------------------------------------

struct Stream {
  const char* name;
  Buffer bytes;
};

struct GValueString {
  const char* name;
  const char* value;
};

// An OLE2 container with the streams and, when given, summary information.
Buffer container(const std::vector<Stream>& streams, const std::vector<GValueString>& summary = {},
                 std::int64_t created = -1) {
  gsf_init();
  GsfOutput* sink = gsf_output_memory_new();
  GsfOutfile* ole = gsf_outfile_msole_new(sink);
  for (const Stream& stream : streams) {
    GsfOutput* child = gsf_outfile_new_child(ole, stream.name, FALSE);
    gsf_output_write(child, stream.bytes.size(), stream.bytes.data());
    gsf_output_close(child);
    g_object_unref(child);
  }
  if (!summary.empty() || created >= 0) {
    GsfDocMetaData* meta = gsf_doc_meta_data_new();
    for (const GValueString& entry : summary) {
      GValue* value = g_new0(GValue, 1);
      g_value_init(value, G_TYPE_STRING);
      g_value_set_string(value, entry.value);
      gsf_doc_meta_data_insert(meta, g_strdup(entry.name), value);
    }
    if (created >= 0) {
      GsfTimestamp* stamp = gsf_timestamp_new();
      gsf_timestamp_set_time(stamp, guint64(created));
      GValue* value = g_new0(GValue, 1);
      g_value_init(value, GSF_TIMESTAMP_TYPE);
      gsf_timestamp_to_value(stamp, value);
      gsf_timestamp_free(stamp);
      gsf_doc_meta_data_insert(meta, g_strdup(GSF_META_NAME_DATE_CREATED), value);
    }
    GsfOutput* child = gsf_outfile_new_child(ole, "\005SummaryInformation", FALSE);
    gsf_doc_meta_data_write_to_msole(meta, child, FALSE);
    gsf_output_close(child);
    g_object_unref(child);
    g_object_unref(meta);
  }
  gsf_output_close(GSF_OUTPUT(ole));
  g_object_unref(ole);
  const guint8* data = gsf_output_memory_get_bytes(GSF_OUTPUT_MEMORY(sink));
  Buffer bytes(data, data + gsf_output_size(sink));
  g_object_unref(sink);
  return bytes;
}

Buffer wordContainer(const WordStreams& streams, const char* tableName = "0Table") {
  return container({{"WordDocument", streams.wordDocument}, {tableName, streams.table}});
}

std::optional<ReaderOutput> readBytes(const Buffer& bytes, std::string name = "x.doc") {
  return readWordDocument(ReaderSource::data(Bytes(bytes.data(), bytes.size()), name));
}

TEST(WordDocumentReader, ContainerWithSummaryInformation) {
  WordStreams streams = makeStreams({{u"Hello \u65E5\r", false}});
  Buffer bytes = container({{"WordDocument", streams.wordDocument}, {"0Table", streams.table}},
                           {{GSF_META_NAME_TITLE, "The title"},
                            {GSF_META_NAME_SUBJECT, "A subject"},
                            {GSF_META_NAME_CREATOR, "Ann Author"},
                            {GSF_META_NAME_KEYWORDS, "one, two"},
                            {GSF_META_NAME_DESCRIPTION, "Some comment"},
                            {GSF_META_NAME_TEMPLATE, "Normal.dot"}},
                           1614853230);
  std::optional<ReaderOutput> output = readBytes(bytes);
  ASSERT_TRUE(output && output->text);
  EXPECT_EQ(*output, (ReaderOutput{.convention = Convention::AttributedDocument,
                                   .text = u"Hello \u65E5",
                                   .title = u"The title",
                                   .subject = u"A subject",
                                   .comment = u"Some comment",
                                   .authors = TextList{u"Ann Author"},
                                   .keywords = TextList{u"one", u"two"},
                                   .creation = Date{1614853230LL * 1000000},
                                   .documentType = kDocFormatTextDocumentType}));
}

TEST(WordDocumentReader, WhatIsNotReadAsWord) {
  WordStreams sound = makeStreams({{u"Text\r", true}});
  WordStreams word6 = sound, encrypted = sound, tableOne = sound;
  put16(word6.wordDocument, 0, 0xA5DC), put16(word6.wordDocument, 2, 101);
  put16(encrypted.wordDocument, 0x0A, 0x0100);
  put16(tableOne.wordDocument, 0x0A, 0x0200);
  Buffer magicOnly(kOLEMagicForTests, kOLEMagicForTests + 8);
  struct Row {
    const char* name;
    Buffer bytes;
    bool read;
    const char* log;
  };
  const Row rows[] = {
      {"sound", wordContainer(sound), true, nullptr},
      {"table named by the flag", wordContainer(tableOne, "1Table"), true, nullptr},
      {"wrong table stream", wordContainer(tableOne, "0Table"), false, "no table stream"},
      // Left to the Word importer without a word.
      {"Word 6", wordContainer(word6), false, nullptr},
      {"encrypted", wordContainer(encrypted), false, "Encrypted document"},
      {"no WordDocument stream", container({{"Workbook", sound.wordDocument}}), false, nullptr},
      {"no file information block", container({{"WordDocument", Buffer(16, 0)}}), false,
       "no file information block"},
      {"magic only", magicOnly, false, "Damaged document"},
      {"empty", {}, false, nullptr},
  };
  for (const Row& row : rows) {
    testing::CapturedLog log;
    std::optional<ReaderOutput> output = readBytes(row.bytes);
    EXPECT_EQ(output.has_value(), row.read) << row.name;
    if (row.log)
      EXPECT_TRUE(log.contains(row.log)) << row.name;
    else
      EXPECT_TRUE(log.lines().empty()) << row.name << ": " << log.lines()[0];
  }
}

// ---- The project's documents ------------------------------------------------------------------

fs::path fixture(std::string_view name) { return testing::dataPath() / "wordprocessor/doc" / name; }

// "2023-03-14T09:26:53Z" as microseconds since 1970.
Date isoMoment(const std::string& text) {
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%dZ", &year, &month, &day, &hour, &minute, &second);
  std::chrono::sys_days days{std::chrono::year(year) / month / day};
  return Date{(days.time_since_epoch().count() * 86400LL + hour * 3600LL + minute * 60LL + second) *
              1000000};
}

// The same for an attribute of an expect.json file.
// The properties a fixture's script lists, under the names it gives them.
ReaderOutput expectedProperties(const nlohmann::json& attributes) {
  ReaderOutput output{.convention = Convention::AttributedDocument,
                      .documentType = kDocFormatTextDocumentType};
  for (const auto& [key, value] : attributes.items()) {
    if (value.is_array()) {
      TextList& words = output.keywords.emplace();
      for (const auto& word : value) words.push_back(fromUtf8(word.get<std::string>()));
      continue;
    }
    std::string text = value.get<std::string>();
    if (key == "CreationTime") output.creation = isoMoment(text);
    if (key == "ModificationTime") output.modification = isoMoment(text);
    if (key == "Author") output.authors = TextList{fromUtf8(text)};
    if (key == "Title") output.title = fromUtf8(text);
    if (key == "Subject") output.subject = fromUtf8(text);
    if (key == "Comment") output.comment = fromUtf8(text);
  }
  return output;
}

// The documents as Word lays them out: a compound file with the WordDocument, 1Table and summary
// information streams; a style sheet, fonts, sections, page headers and footers, footnotes and
// an endnote, three lists, a table with an empty cell, fields, and text in UTF-16 or in
// Windows-1252 one byte a character. Their text and summary information are beside them.
TEST(WordDocumentReader, DocumentsTextAndSummaryInformation) {
  testing::CapturedLog log;
  for (const char* name : {"ledger.doc", "compressed.doc"}) {
    fs::path path = fixture(name);
    auto answer = nlohmann::json::parse(testing::readFile(path.string() + ".expect.json"));
    std::optional<ReaderOutput> output = readWordDocument(ReaderSource::file(path.string()));
    ASSERT_TRUE(output && output->text) << name;
    EXPECT_EQ(toUtf8(*output->text), answer["text"].get<std::string>()) << name;
    // Every property read is expected and every expected one read.
    output->text.reset();
    EXPECT_EQ(*output, expectedProperties(answer["attributes"])) << name;
  }
  EXPECT_TRUE(log.lines().empty()) << log.lines()[0];
}

// A reading that must end: a read that hangs fails the test by its timeout.
TEST(WordDocumentReader, DamagedContainersAnswerLittle) {
  std::string report = testing::readFile(fixture("ledger.doc"));
  ASSERT_FALSE(report.empty());
  Buffer original(report.begin(), report.end());
  auto sector = [&](std::uint32_t index) { return std::size_t(index + 1) * 512; };
  struct Row {
    const char* name;
    Buffer bytes;
  };
  std::vector<Row> rows;
  {
    // Every entry of the first FAT sector points at itself: each chain is a loop.
    Buffer cyclic = original;
    std::size_t fat = sector(original[0x4C] | original[0x4D] << 8 | original[0x4E] << 16);
    for (std::uint32_t i = 0; i < 128 && fat + i * 4 + 4 <= cyclic.size(); ++i)
      put32(cyclic, fat + i * 4, i);
    rows.push_back({"cyclic FAT", cyclic});
  }
  {
    Buffer cyclic = original;
    // The directory chain starts at its own last sector over and over.
    put32(cyclic, 0x30, 0xFFFFFFF0);
    rows.push_back({"directory outside the file", cyclic});
  }
  for (std::size_t size : {std::size_t(8), std::size_t(512), std::size_t(513), std::size_t(4096),
                           original.size() / 2, original.size() - 1})
    rows.push_back(
        {"truncated", Buffer(original.begin(), original.begin() + std::ptrdiff_t(size))});
  // Scattered byte changes all over the container and the streams.
  std::uint32_t seed = 12345;
  for (int round = 0; round < 200; ++round) {
    Buffer changed = original;
    for (int i = 0; i < 20; ++i) {
      seed = seed * 1103515245 + 12345;
      changed[(seed >> 8) % changed.size()] = std::uint8_t(seed >> 24);
    }
    rows.push_back({"changed bytes", changed});
  }
  testing::CapturedLog log;
  for (const Row& row : rows) {
    auto start = std::chrono::steady_clock::now();
    std::optional<ReaderOutput> output = readBytes(row.bytes);
    if (output && output->text) EXPECT_LE(output->text->size(), original.size()) << row.name;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << row.name;
  }
}

// ---- Corpus ----------------------------------------------------------------------------------

std::optional<Date> isoDate(const nlohmann::json& value) {
  if (!value.is_string()) return std::nullopt;
  return w3cDate(value.get<std::string>());
}

std::string metaString(const nlohmann::json& meta, const char* key) {
  if (!meta.contains(key) || !meta[key].is_string()) return "";
  std::string text = meta[key].get<std::string>();
  std::erase(text, '\0');
  return text;
}

TEST(WordDocumentReader, CorpusTextAndAttributes) {
  ULVEK_REQUIRE_CORPUS();
  fs::path folder = testing::corpusPath() / "docs/doc";
  const std::vector<fs::path> files = testing::filesOf(folder, {".doc"});
  int documents = 0;
  double sum = 0;
  testing::CapturedLog log;
  for (const fs::path& path : files) {
    std::string name = path.filename().string();
    SCOPED_TRACE(name);
    auto meta = nlohmann::json::parse(testing::readFile(path.string() + ".meta.json"));
    std::optional<ReaderOutput> output = readWordDocument(ReaderSource::file(path.string()));
    // Damaged files, and files that are no Word 97 documents, only have to answer.
    bool ordinary = !meta.value("damaged", false) && meta.value("has_WordDocument_stream", false) &&
                    !(meta.contains("security") && meta["security"] == 1);
    if (!ordinary) {
      std::printf("%-45s %s\n", name.c_str(), output ? "read" : "not read");
      continue;
    }
    ASSERT_TRUE(output && output->text);
    std::string expected = testing::readFile(path.string() + ".txt");
    double f1 = testing::wordBagF1(*output->text, fromUtf8(expected));
    std::printf("%-45s F1 %.4f\n", name.c_str(), f1);
    ++documents, sum += f1;
    EXPECT_GE(f1, 0.9);

    const std::pair<const char*, std::optional<TextString>> strings[] = {
        {"title", output->title},
        {"subject", output->subject},
        {"author", output->authors ? std::optional(output->authors->front()) : std::nullopt},
        {"comment", output->comment}};
    for (const auto& [key, value] : strings)
      EXPECT_EQ(toUtf8(value.value_or(TextString())), metaString(meta, key)) << key;
    std::string keywords;
    for (const TextString& word : output->keywords.value_or(TextList()))
      keywords += (keywords.empty() ? "" : " ") + toUtf8(word);
    std::string expectedKeywords;
    if (meta["keywords"].is_array())
      for (const auto& word : meta["keywords"]) {
        std::string text = word.get<std::string>();
        std::erase(text, '\0');
        if (!text.empty()) expectedKeywords += (expectedKeywords.empty() ? "" : " ") + text;
      }
    EXPECT_EQ(keywords, expectedKeywords);
    EXPECT_EQ(output->creation, isoDate(meta["created"]));
    EXPECT_EQ(output->modification, isoDate(meta["modified"]));
  }
  std::printf("doc: %d documents, mean word-bag F1 %.4f\n", documents, sum / documents);
  EXPECT_GE(documents, 20);
  EXPECT_GE(sum / documents, 0.97);
}

TEST(WordDocumentReader, CorpusListLabelsAndNoteNumbers) {
  ULVEK_REQUIRE_CORPUS();
  std::optional<ReaderOutput> output = readWordDocument(ReaderSource::file(
      (testing::corpusPath() / "docs/doc/tika-testWORD_numbered_list.doc").string()));
  ASSERT_TRUE(output && output->text);
  std::string text = toUtf8(*output->text);
  // As LibreOffice's text export labels them: four spaces a level, the label and a space.
  for (const char* line :
       {"    1) This\n        a) Is\n            i) A multi\n            ii) Level\n",
        "            iii) List\n    2) foo\n",
        "    I. yet\n        a) another\n            i) list\n", "                (1) baq\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
  output = readWordDocument(
      ReaderSource::file((testing::corpusPath() / "docs/doc/made-report.doc").string()));
  ASSERT_TRUE(output && output->text);
  text = toUtf8(*output->text);
  // A bullet is LibreOffice's own of its level: "◦" on the second.
  for (const char* line :
       {"per quarter.2\n", "    1. Collect the documents\n        \xE2\x97\xA6 from",
        "            i. inline parts\n            ii. attached files\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
}

TEST(WordDocumentReader, CorpusTablesByTheirRowMarks) {
  ULVEK_REQUIRE_CORPUS();
  // A row with an empty middle cell: the row mark, not a second cell mark, ends it.
  std::optional<ReaderOutput> output = readWordDocument(
      ReaderSource::file((testing::corpusPath() / "docs/doc/made-report.doc").string()));
  ASSERT_TRUE(output && output->text);
  std::string text = toUtf8(*output->text);
  EXPECT_NE(text.find("Format\tQ1\tQ2\tQ3\tQ4\tTotal\nPDF\t1,204"), std::string::npos);
  EXPECT_NE(text.find("Service host and importer plug-ins\tS\xC3\xB8ren Kierkegaard\n"),
            std::string::npos);
}

}  // namespace
}  // namespace ulvek
