// Each process's temporary folder: its name, the sweep of folders that ended processes left,
// and its removal when a signal ends the process.
#include "platform/temporary_items.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;

const bool kPrivateCache = testing::usePrivateCacheFolder();

std::string ownFolderName() {
  return processFolderName(::getpid(), processStartTime(::getpid()).value_or(0));
}

// A process that has ended and been reaped: its pid names nobody (until reused, which a test
// run will not see).
pid_t endedProcess() {
  pid_t child = ::fork();
  if (child == 0) ::_exit(0);
  ::waitpid(child, nullptr, 0);
  return child;
}

TEST(TemporaryItems, TheProcessFolderIsNamedByPidAndStartTime) {
  Result<std::string> folder = temporaryItemsFolder();
  ASSERT_TRUE(folder) << folder.error().localizedDescription;
  EXPECT_EQ(*folder, temporaryItemsRoot() + "/" + ownFolderName());
  EXPECT_TRUE(fs::is_directory(*folder));
  // Field 22 counts ticks after boot: a later process started later.
  std::optional<unsigned long long> own = processStartTime(::getpid());
  std::optional<unsigned long long> init = processStartTime(1);
  ASSERT_TRUE(own && init);
  EXPECT_GE(*own, *init);
  EXPECT_FALSE(processStartTime(endedProcess()));

  Result<TemporaryDirectory> directory = TemporaryDirectory::create("test");
  ASSERT_TRUE(directory);
  EXPECT_EQ(fs::path(directory->path()).parent_path(), fs::path(*folder));
  EXPECT_TRUE(fs::path(directory->path()).filename().string().starts_with("test."));
}

TEST(TemporaryItems, TheSweepRemovesOnlyFoldersOfEndedProcesses) {
  ASSERT_TRUE(temporaryItemsFolder());
  pid_t parent = ::getppid();
  unsigned long long parentStart = processStartTime(parent).value();
  struct Row {
    std::string name;
    bool removed;
  };
  const Row rows[] = {
      {processFolderName(endedProcess(), 12345), true},
      // The pid lives, but as a later process than the one that made the folder.
      {processFolderName(parent, parentStart + 1), true},
      {processFolderName(parent, parentStart), false},
      {ownFolderName(), false},
      // A start time nobody could read says nothing against a live process.
      {processFolderName(parent, 0), false},
      {"epub.Xa81Qz", false},
      {"12x-3", false},
      {"-5", false},
      {"notes", false},
  };
  std::size_t expected = 0;
  for (const Row& row : rows) {
    fs::create_directories(fs::path(temporaryItemsRoot()) / row.name / "inner");
    std::ofstream(fs::path(temporaryItemsRoot()) / row.name / "inner/file") << "x";
    expected += row.removed;
  }
  EXPECT_EQ(sweepAbandonedTemporaryItems(), expected);
  for (const Row& row : rows)
    EXPECT_EQ(fs::exists(fs::path(temporaryItemsRoot()) / row.name), !row.removed) << row.name;
  for (const Row& row : rows) {
    if (row.name != ownFolderName()) fs::remove_all(fs::path(temporaryItemsRoot()) / row.name);
  }
}

// Forks a child that fills a temporary folder (a file, a nested folder, a link to a file outside)
// and waits; answers the child and its folder.
std::pair<pid_t, std::string> childWithItems(const fs::path& outside, int ignored) {
  int pipeEnds[2];
  if (::pipe(pipeEnds) != 0) return {-1, ""};
  pid_t child = ::fork();
  if (child == 0) {
    ::close(pipeEnds[0]);
    if (ignored) ::signal(ignored, SIG_IGN);
    Result<TemporaryDirectory> directory = TemporaryDirectory::create("epub");
    if (!directory) ::_exit(3);
    fs::create_directories(directory->path() + "/OEBPS/images/deep");
    std::ofstream(directory->path() + "/OEBPS/images/deep/cover.png") << "png";
    std::ofstream(directory->path() + "/mimetype") << "application/epub+zip";
    fs::create_symlink(outside, directory->path() + "/link");
    std::string folder = *temporaryItemsFolder() + "\n";
    if (::write(pipeEnds[1], folder.data(), folder.size()) < 0) ::_exit(4);
    for (;;) ::pause();
  }
  ::close(pipeEnds[1]);
  std::string folder;
  char c;
  while (::read(pipeEnds[0], &c, 1) == 1 && c != '\n') folder += c;
  ::close(pipeEnds[0]);
  return {child, folder};
}

TEST(TemporaryItems, ASignalThatEndsTheProcessRemovesItsFolder) {
  testing::TemporaryFolder outside;
  std::string kept = outside.write("kept.txt", "must stay");
  struct Row {
    int number;
    int ignored;  // a signal the program set to be ignored before it made its folder
    bool ends;
  };
  const Row rows[] = {
      {SIGTERM, 0, true}, {SIGINT, 0, true},       {SIGHUP, 0, true},
      {SIGPIPE, 0, true}, {SIGHUP, SIGHUP, false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(sigabbrev_np(row.number));
    auto [child, folder] = childWithItems(kept, row.ignored);
    ASSERT_GT(child, 0);
    ASSERT_TRUE(fs::exists(folder + "/.."));
    ASSERT_FALSE(folder.empty());
    ASSERT_TRUE(fs::is_directory(folder));
    ::kill(child, row.number);
    if (!row.ends) {
      ::usleep(100000);
      EXPECT_TRUE(fs::is_directory(folder));
      ::kill(child, SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    // The process still ends by the signal, as its parent expects.
    EXPECT_EQ(WTERMSIG(status), row.ends ? row.number : SIGKILL);
    EXPECT_EQ(fs::exists(folder), !row.ends);
    EXPECT_EQ(testing::readFile(kept), "must stay");
    fs::remove_all(folder);
  }
}

TEST(TemporaryItems, AForkedChildLeavesItsParentsFolderAlone) {
  Result<std::string> folder = temporaryItemsFolder();
  ASSERT_TRUE(folder);
  for (bool signalled : {false, true}) {
    pid_t child = ::fork();
    if (child == 0) {
      // (std::exit would run the test program's own clean-up of the whole cache folder.)
      if (signalled) ::raise(SIGTERM);
      removeProcessTemporaryItems();
      ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
    EXPECT_TRUE(fs::is_directory(*folder)) << signalled;
  }
}

TEST(TemporaryItems, OnlyFoldersBelowTheRootAreAdopted) {
  testing::TemporaryFolder outside;
  std::string below = temporaryItemsRoot() + "/" + ownFolderName() + "/worker.test";
  fs::create_directories(below);
  struct Row {
    std::string path;
    bool adopted;
  };
  const Row rows[] = {
      {below, true},
      {below + "/", true},
      {outside.path().string(), false},
      {temporaryItemsRoot(), false},
      {temporaryItemsRoot() + "/../elsewhere", false},
      {temporaryItemsRoot() + "/missing", false},
      {"", false},
      {"relative/folder", false},
  };
  for (const Row& row : rows) EXPECT_EQ(adoptTemporaryFolder(row.path), row.adopted) << row.path;
  fs::remove_all(below);
}

// Without a cache or home folder the root is a folder of the user's own in /tmp, which is made
// private and refused when it is not. Each row runs in a child, whose environment it changes.
TEST(TemporaryItems, WithoutAHomeTheFolderIsPrivate) {
  const std::string base = "/tmp/ulvekbot-" + std::to_string(::getuid());
  const std::string moved = base + ".before-test";
  bool hadBase = fs::exists(base);
  if (hadBase) fs::rename(base, moved);
  struct Row {
    const char* name;
    const char* runtime;     // XDG_RUNTIME_DIR, or unset
    mode_t existingMode;     // the base made beforehand with this mode; 0: not made
    const char* rootPrefix;  // "" when the folder is refused
  };
  testing::TemporaryFolder runtime;
  const Row rows[] = {
      {"runtime folder", runtime.path().c_str(), 0, runtime.path().c_str()},
      {"made private", nullptr, 0, "/tmp/ulvekbot-"},
      {"already private", nullptr, 0700, "/tmp/ulvekbot-"},
      {"open to others", nullptr, 0777, ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if (row.existingMode) {
      fs::create_directory(base);
      ::chmod(base.c_str(), row.existingMode);
    }
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    pid_t child = ::fork();
    if (child == 0) {
      ::unsetenv("XDG_CACHE_HOME");
      ::unsetenv("HOME");
      if (row.runtime)
        ::setenv("XDG_RUNTIME_DIR", row.runtime, 1);
      else
        ::unsetenv("XDG_RUNTIME_DIR");
      Result<std::string> folder = temporaryItemsFolder();
      std::string answer = folder ? *folder : std::string();
      if (folder) {
        struct stat info {};
        ::stat(fs::path(*folder).parent_path().parent_path().parent_path().c_str(), &info);
        if (!row.runtime && (info.st_mode & 077) != 0) answer = "not private";
      }
      [[maybe_unused]] ssize_t written = ::write(pipeEnds[1], answer.data(), answer.size());
      ::_exit(0);
    }
    ::close(pipeEnds[1]);
    std::string answer;
    char buffer[4096];
    for (ssize_t got; (got = ::read(pipeEnds[0], buffer, sizeof buffer)) > 0;)
      answer.append(buffer, static_cast<std::size_t>(got));
    ::close(pipeEnds[0]);
    ::waitpid(child, nullptr, 0);
    if (*row.rootPrefix)
      EXPECT_TRUE(answer.starts_with(row.rootPrefix)) << answer;
    else
      EXPECT_EQ(answer, "");
    fs::remove_all(base);
  }
  if (hadBase) fs::rename(moved, base);
}

// What a temporary file leaves behind: nothing, and one log line when the system refuses.
TEST(TemporaryFile, RemovesItsPathWhenItGoesAway) {
  testing::TemporaryFolder folder;
  const std::string file = folder.write("file", "bytes");
  const std::string tree = folder.write("tree/inner/leaf", "bytes");
  const std::string link = (folder.path() / "link").string();
  fs::create_symlink(file, link);
  struct Row {
    const char* name;
    std::string path;
    bool logged;
  };
  const Row rows[] = {
      {"a link, not what it leads to", link, false},
      {"a file", file, false},
      {"a folder with what it holds", (folder.path() / "tree").string(), false},
      {"nothing there", (folder.path() / "missing").string(), false},
      {"the system refuses", "/proc/self/status", true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    testing::CapturedLog log;
    bool linkTarget = fs::exists(file);
    { TemporaryFile temporary(row.path); }
    EXPECT_EQ(log.contains("Couldn't remove path " + row.path), row.logged);
    EXPECT_EQ(log.lines().size(), row.logged ? 1u : 0u);
    if (!row.logged) EXPECT_FALSE(fs::exists(fs::symlink_status(row.path)));
    if (row.path == link) EXPECT_EQ(fs::exists(file), linkTarget);
  }
  // A moved-from object removes nothing; the one it moved to does.
  const std::string kept = folder.write("kept", "");
  {
    TemporaryFile first(kept);
    TemporaryFile second(std::move(first));
    EXPECT_EQ(second.path(), kept);
    EXPECT_TRUE(first.path().empty());
  }
  EXPECT_FALSE(fs::exists(kept));
}

}  // namespace
}  // namespace ulvek
