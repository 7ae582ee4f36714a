// Why a file was not read: the kind an import reports beside its (unchanged) result.

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>

#include "import/mime_type_helper.h"
#include "test_support.h"
#include "zip_test_files.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

// The kind of failure an import of `path` reports, or "read". Run as an ordinary user where the
// tests run as root, since root opens any file.
std::string outcomeOf(const std::string& path) {
  auto outcome = [&] {
    testing::CapturedLog quiet;
    ImportDetails details;
    MIMETypeHelper().openFile(path, details);
    return details.failure ? std::string(failureKindName(details.failure->kind)) : "read";
  };
  if (::geteuid() != 0) return outcome();
  int pipe[2];
  if (::pipe(pipe) != 0) return "no pipe";
  pid_t child = ::fork();
  if (child == 0) {
    ::close(pipe[0]);
    if (::setgroups(0, nullptr) != 0 || ::setresgid(65534, 65534, 65534) != 0 ||
        ::setresuid(65534, 65534, 65534) != 0)
      ::_exit(2);
    std::string answer = outcome();
    ssize_t written = ::write(pipe[1], answer.data(), answer.size());
    ::_exit(written == static_cast<ssize_t>(answer.size()) ? 0 : 3);
  }
  ::close(pipe[1]);
  std::string answer;
  char buffer[64];
  for (ssize_t n; (n = ::read(pipe[0], buffer, sizeof buffer)) > 0;) answer.append(buffer, n);
  ::close(pipe[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? answer : "child failed";
}

TEST(ImportFailures, EachKindIsToldApartFromAFileThatWasRead) {
  testing::TemporaryFolder folder;
  fs::permissions(folder.path(), fs::perms::all);  // the ordinary user walks into it
  // The build's importers, and a cache the ordinary user may write its worker's folder in.
  ::setenv("ULVEKBOT_IMPORTER_PATH", (std::string(ULVEK_BINARY_DIR) + "/src/Importers").c_str(), 1);
  ::setenv("ULVEKBOT_IMPORTER_WORKER",
           (std::string(ULVEK_BINARY_DIR) + "/src/ulvekbot-importer-worker").c_str(), 1);
  fs::create_directory(folder.path() / "cache");
  fs::permissions(folder.path() / "cache", fs::perms::all);
  ::setenv("XDG_CACHE_HOME", (folder.path() / "cache").c_str(), 1);
  auto file = [&](const char* name, std::string bytes,
                  fs::perms mode =
                      fs::perms::owner_read | fs::perms::group_read | fs::perms::others_read) {
    std::string path = folder.write(name, bytes);
    fs::permissions(path, mode);
    return path;
  };
  auto zip = [&](const char* name, const std::vector<testing::ZipEntry>& entries) {
    std::string path = (folder.path() / name).string();
    EXPECT_TRUE(testing::writeZip(path, entries));
    fs::permissions(path, fs::perms::all);
    return path;
  };
  auto fifo = [&](const char* name) {
    std::string path = (folder.path() / name).string();
    EXPECT_EQ(::mkfifo(path.c_str(), 0666), 0);
    return path;
  };
  const std::string kPage = "<html><title>Tide</title><body>Low water at noon.</body></html>";
  struct Row {
    const char* name;
    std::string path;
    std::string outcome;
  };
  const Row rows[] = {
      {"a page", file("tide.html", kPage), "read"},
      {"an empty text", file("empty.txt", ""), "read"},
      {"a picture without text", (testing::dataPath() / "image/dusk.png").string(), "read"},
      {"no such file", (folder.path() / "missing.html").string(), "not-found"},
      {"a file nobody may read", file("locked.html", kPage, fs::perms::none), "permission"},
      {"a Word package without its document",
       zip("hollow.docx", {{"[Content_Types].xml", "<Types/>"}, {"docProps/core.xml", "<x/>"}}),
       "damaged"},
      {"an empty Word document", file("empty.docx", ""), "damaged"},
      {"a WordPerfect file cut short", file("cut.wpd", std::string("\xffWPC\x10\x00", 6)),
       "damaged"},
      {"an archive nothing reads", zip("bundle.zip", {{"a.txt", "x"}}), "unsupported"},
      // Never opened: that could wait for a writer for ever.
      {"a named pipe", fifo("pipe.txt"), "unsupported"},
      {"a device", "/dev/zero", "unsupported"},
      {"a text too large to read", file("dump.txt", std::string(5 * 1024 * 1024, 'a')),
       "too-large"},
      {"a Word document that would inflate past the limits",
       zip("bomb.docx",
           {{"[Content_Types].xml", "<Types/>"}, {"word/document.xml", std::string(4 << 20, ' ')}}),
       "too-large"},
  };
  for (const Row& row : rows) EXPECT_EQ(outcomeOf(row.path), row.outcome) << row.name;
}

// A document its reader could not read falls through to the importers, and none takes it: the
// reader's reason is the one line logged, not a second one saying no importer reads the kind.
TEST(ImportFailures, AFailedReaderGivesTheOneReason) {
  testing::TemporaryFolder folder;
  struct Row {
    const char* name;
    std::vector<testing::ZipEntry> entries;
    const char* reason;
  };
  const Row rows[] = {
      {"hollow.docx", {{"[Content_Types].xml", "<Types/>"}}, "no document in the package"},
      {"bomb.docx", {{"word/document.xml", std::string(4 << 20, ' ')}}, "MB inflated"},
      {"bomb.odt",
       {{"mimetype", "application/vnd.oasis.opendocument.text", false, true},
        {"content.xml", std::string(4 << 20, ' ')}},
       "MB inflated"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string path = (folder.path() / row.name).string();
    ASSERT_TRUE(testing::writeZip(path, row.entries));
    testing::CapturedLog log;
    ImportDetails details;
    MIMETypeHelper().openFile(path, details);
    ASSERT_EQ(log.lines().size(), 1u) << (log.lines().empty() ? "" : log.lines().back());
    EXPECT_NE(log.lines()[0].find(row.reason), std::string::npos) << log.lines()[0];
  }
}

}  // namespace
}  // namespace ulvek
