#include "base/log.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <thread>

#include "base/failure.h"

namespace ulvek {
namespace {

struct Context {
  std::string part;
  std::string file;
};

TEST(LogTest, LinesOnStandardErrorHaveOneShape) {
  struct Row {
    const char* name;
    std::vector<Context> contexts;  // outermost first
    std::string line;
    std::string tag;
    std::string expected;
  };
  const std::vector<Row> rows = {
      {"no context", {}, "Skipped: /a/b.txt (5 MB)", "", "ulvekbot: Skipped: /a/b.txt (5 MB)"},
      {"file named by the context only",
       {{"", "/d/x.vcf"}},
       "Invalid base64 value of PHOTO",
       "",
       "ulvekbot: /d/x.vcf: Invalid base64 value of PHOTO"},
      {"line that names its file already",
       {{"", "/d/x.doc"}, {"reader doc", ""}},
       "Damaged document: /d/x.doc (no table stream)",
       "damaged",
       "ulvekbot: reader doc: damaged: Damaged document: /d/x.doc (no table stream)"},
      {"inner part replaces the outer one",
       {{"reader importer host", "/d/x.pdf"}, {"importer PDF", ""}},
       "time limit reached after 3 of 9 pages",
       "",
       "ulvekbot: importer PDF: /d/x.pdf: time limit reached after 3 of 9 pages"},
      {"inner file replaces the outer one",
       {{"", "/d/mail.eml"}, {"reader pdf", "/d/mail.eml (attachment a.pdf)"}},
       "Syntax Error: bad xref",
       "",
       "ulvekbot: reader pdf: /d/mail.eml (attachment a.pdf): Syntax Error: bad xref"},
  };
  for (const Row& row : rows) {
    std::vector<std::optional<LogContext>> contexts(row.contexts.size());
    for (std::size_t i = 0; i < row.contexts.size(); ++i)
      contexts[i].emplace(row.contexts[i].part, row.contexts[i].file);
    EXPECT_EQ(decoratedLogLine("ulvekbot", row.line, row.tag), row.expected) << row.name;
    // Ended contexts name nothing.
    while (!contexts.empty()) contexts.pop_back();
    EXPECT_EQ(LogContext::part(), "") << row.name;
    EXPECT_EQ(LogContext::file(), "") << row.name;
  }
}

TEST(LogTest, ContextsBelongToTheirThread) {
  LogContext here("reader rtf", "/d/here.rtf");
  std::string elsewhere;
  std::thread([&] { elsewhere = decoratedLogLine("ulvekbot", "x"); }).join();
  EXPECT_EQ(elsewhere, "ulvekbot: x");
  EXPECT_EQ(decoratedLogLine("ulvekbot", "x"), "ulvekbot: reader rtf: /d/here.rtf: x");
}

TEST(LogTest, FailuresAreLoggedAsTheyStandAndReported) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  FailureScope scope;
  logFailure(FailureKind::Damaged, "Damaged document: /d/x.doc");
  setLogSink({});
  EXPECT_EQ(lines, std::vector<std::string>{"Damaged document: /d/x.doc"});
  ASSERT_TRUE(scope.failure());
  EXPECT_EQ(scope.failure()->kind, FailureKind::Damaged);
}

}  // namespace
}  // namespace ulvek
