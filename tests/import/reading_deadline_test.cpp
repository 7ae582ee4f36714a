// In-process readers under a reading deadline: past it a file answers the text read so far, says
// so in one line and counts as failed; without one it is read whole.

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/deadline.h"
#include "import/mime_type_helper.h"
#include "protocol/import_result.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace std::chrono_literals;

// `count` numbered items made by `item`, between `head` and `tail`; the last one names "END".
std::string repeated(std::string_view head, std::string_view tail, int count,
                     const std::function<std::string(int)>& item) {
  std::string bytes(head);
  for (int i = 0; i < count; ++i) bytes += item(i);
  bytes += item(-1);
  bytes += tail;
  return bytes;
}

std::string numbered(int i) { return i < 0 ? std::string("END") : "w" + std::to_string(i); }

struct Outcome {
  std::string text;
  std::optional<FailureKind> failure;
  std::vector<std::string> lines;
};

Outcome importWithin(const std::string& path,
                     std::optional<ReadingDeadline::Clock::duration> limit) {
  testing::CapturedLog log;
  ReadingDeadline deadline(limit);
  ImportDetails details;
  ImportResult result = MIMETypeHelper().openFile(path, details);
  Outcome outcome;
  if (const TextString* text = result.string(ImportKey::Text)) outcome.text = toUtf8(*text);
  if (details.failure) outcome.failure = details.failure->kind;
  for (const std::string& line : log.lines())
    if (line.find("Time limit") != std::string::npos) outcome.lines.push_back(line);
  return outcome;
}

struct Slow {
  const char* name;
  std::string bytes;
};

std::vector<Slow> slowInputs() {
  const int n = 200000;
  return {
      {"page.html", repeated("<html><body>", "</body></html>", n,
                             [](int i) { return "<p>" + numbered(i) + "</p>\n"; })},
      {"deep.html", repeated("<html><body>", "</body></html>", n,
                             [](int i) { return "<div><b>" + numbered(i) + "</b>"; })},
      {"notes.xhtml",
       repeated("<?xml version=\"1.0\"?><html xmlns=\"http://www.w3.org/1999/xhtml\"><body>",
                "</body></html>", n, [](int i) { return "<p>" + numbered(i) + "</p>"; })},
      {"letter.rtf",
       repeated("{\\rtf1 ", "}", n, [](int i) { return "{\\f1 " + numbered(i) + "}\\par\n"; })},
      {"person.vcf", repeated("BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Anna\r\n", "END:VCARD\r\n", 15000,
                              [](int i) { return "NOTE:" + numbered(i) + "\r\n"; })},
  };
}

TEST(ReadingDeadline, APassedTimeAnswersTheTextSoFarInOneLine) {
  testing::TemporaryFolder folder;
  for (const Slow& input : slowInputs()) {
    SCOPED_TRACE(input.name);
    std::string path = folder.write(input.name, input.bytes);

    Outcome whole = importWithin(path, std::nullopt);
    EXPECT_NE(whole.text.find("END"), std::string::npos) << "read whole without a deadline";
    EXPECT_EQ(whole.failure, std::nullopt);
    EXPECT_TRUE(whole.lines.empty());

    auto started = std::chrono::steady_clock::now();
    Outcome cut = importWithin(path, 0s);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
    EXPECT_EQ(cut.text.find("END"), std::string::npos) << "stopped early";
    EXPECT_LT(cut.text.size(), whole.text.size());
    EXPECT_EQ(cut.failure, FailureKind::TimedOut);
    ASSERT_EQ(cut.lines.size(), 1u);
    EXPECT_EQ(cut.lines[0], "Time limit reached, answered the text read so far: " + path);
  }
}

TEST(ReadingDeadline, ATimeThatPassesMidwayKeepsWhatWasRead) {
  // A page that takes a while: cut after a moment it has a beginning and no end.
  testing::TemporaryFolder folder;
  std::string path = folder.write(
      "long.html", repeated("<html><body>", "</body></html>", 1000000,
                            [](int i) { return "<div><p>" + numbered(i) + "</p></div>\n"; }));
  auto started = std::chrono::steady_clock::now();
  Outcome whole = importWithin(path, std::nullopt);
  auto wholeTime = std::chrono::steady_clock::now() - started;
  ASSERT_NE(whole.text.find("END"), std::string::npos);

  started = std::chrono::steady_clock::now();
  Outcome cut = importWithin(path, wholeTime / 3);
  auto cutTime = std::chrono::steady_clock::now() - started;
  EXPECT_NE(cut.text.find("w0"), std::string::npos) << "kept the beginning";
  EXPECT_EQ(cut.text.find("END"), std::string::npos);
  EXPECT_EQ(whole.text.compare(0, cut.text.size() / 2, cut.text, 0, cut.text.size() / 2), 0)
      << "the part is where the whole begins";
  EXPECT_LT(cutTime, wholeTime);
  EXPECT_EQ(cut.failure, FailureKind::TimedOut);
  EXPECT_EQ(cut.lines.size(), 1u);
}

}  // namespace
}  // namespace ulvek
