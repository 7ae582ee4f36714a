// The sandbox as a process sees it from inside: each case enters a policy in a child process and
// tries what it should no longer be able to do (and what it still must).

#include "platform/sandbox.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <spawn.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "test_support.h"

extern char** environ;

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using sandbox::Policy;

int errnoOf(bool succeeded) { return succeeded ? 0 : errno; }

int makeSocket(int domain) {
  int fd = ::socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  ::close(fd);
  return 0;
}

int writeFile(const std::string& path) {
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  ::close(fd);
  ::unlink(path.c_str());
  return 0;
}

int run(const std::string& program) {
  char* arguments[] = {const_cast<char*>(program.c_str()), nullptr};
  pid_t pid = 0;
  if (int failed = ::posix_spawn(&pid, program.c_str(), nullptr, nullptr, arguments, environ))
    return failed;
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : -1;
}

// Enters `policy` in a child, runs `attempt` there and answers its errno (0: it worked).
int inSandbox(const Policy& policy, const std::function<int()>& attempt) {
  int report[2];
  if (::pipe(report) != 0) return -1;
  pid_t child = ::fork();
  if (child == 0) {
    ::close(report[0]);
    sandbox::Applied applied = sandbox::enter(policy);
    int result = -2;
    try {
      if (applied.noNewPrivileges && applied.seccomp) result = attempt();
    } catch (...) {
      result = -4;
    }
    (void)!::write(report[1], &result, sizeof result);
    ::_exit(0);
  }
  ::close(report[1]);
  int result = -3;
  if (::read(report[0], &result, sizeof result) != sizeof result) result = -3;
  ::close(report[0]);
  ::waitpid(child, nullptr, 0);
  return result;
}

class SandboxTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!sandbox::kernelSupport().seccomp) GTEST_SKIP() << "no seccomp on this kernel";
  }
  testing::TemporaryFolder folder_;
  bool landlock_ = sandbox::kernelSupport().landlockAbi > 0;
};

TEST_F(SandboxTest, WhatEachPolicyRefuses) {
  const std::string writable = folder_.path().string();
  const std::string outside = "/var/tmp/ulvek-sandbox-test-" + std::to_string(::getpid());
  const std::string program = sandbox::findProgram("true");
  const std::string shell = "/bin/sh";
  ASSERT_FALSE(program.empty());
  struct Row {
    const char* name;
    Policy::Kind kind;
    std::function<int()> attempt;
    std::vector<int> answers;  // errno values that pass; 0 is success
    bool needsLandlock = false;
    bool skipSanitized = false;
  };
  const int refusedSocket = EACCES;
  const std::vector<Row> rows = {
      {"worker: TCP socket", Policy::Kind::Worker, [] { return makeSocket(AF_INET); }, {EACCES}},
      {"worker: IPv6 socket", Policy::Kind::Worker, [] { return makeSocket(AF_INET6); }, {EACCES}},
      {"worker: local socket", Policy::Kind::Worker, [] { return makeSocket(AF_UNIX); }, {0}},
      {"worker: connect",
       Policy::Kind::Worker,
       [] {
         sockaddr address{};
         address.sa_family = AF_UNIX;
         return errnoOf(::connect(-1, &address, sizeof address) == 0);
       },
       {EACCES}},
      {"worker: write its folder",
       Policy::Kind::Worker,
       [&] { return writeFile(writable + "/file"); },
       {0}},
      {"worker: write elsewhere",
       Policy::Kind::Worker,
       [&] { return writeFile(outside); },
       {EACCES},
       true},
      {"worker: run a shell", Policy::Kind::Worker, [&] { return run(shell); }, {EPERM, EACCES}},
      {"worker: run its one program",
       Policy::Kind::Worker,
       [&] { return run(program); },
       {0},
       true},
      {"worker: trace",
       Policy::Kind::Worker,
       [] { return errnoOf(::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0); },
       {EPERM},
       false,
       true},
      {"worker: new user namespace",
       Policy::Kind::Worker,
       [] { return errnoOf(::unshare(CLONE_NEWUSER) == 0); },
       {EPERM}},
      {"worker: keys",
       Policy::Kind::Worker,
       [] { return errnoOf(::syscall(SYS_keyctl, 0, 0, 0, 0, 0) == 0); },
       {EPERM}},
      {"worker: io_uring",
       Policy::Kind::Worker,
       [] { return errnoOf(::syscall(SYS_io_uring_setup, 1, nullptr) == 0); },
       {EPERM}},
      {"worker: leave the process group",
       Policy::Kind::Worker,
       [] { return errnoOf(::setsid() >= 0); },
       {EPERM}},
      {"worker: threads still start",
       Policy::Kind::Worker,
       [] {
         pthread_t thread;
         if (::pthread_create(
                 &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr))
           return -1;
         return ::pthread_join(thread, nullptr);
       },
       {0}},
      {"daemon: TCP socket",
       Policy::Kind::Daemon,
       [] { return makeSocket(AF_INET); },
       {refusedSocket}},
      {"daemon: local socket", Policy::Kind::Daemon, [] { return makeSocket(AF_UNIX); }, {0}},
      {"daemon: write elsewhere",
       Policy::Kind::Daemon,
       [&] { return writeFile(outside); },
       {EACCES},
       true},
      {"daemon: run its program", Policy::Kind::Daemon, [&] { return run(program); }, {0}},
      {"daemon: run a shell", Policy::Kind::Daemon, [&] { return run(shell); }, {EACCES}, true},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    if ((row.needsLandlock && !landlock_) || (row.skipSanitized && sandbox::kSanitized)) {
      std::cout << "Not checked: " << row.name
                << (sandbox::kSanitized ? ": sanitizer build" : ": no Landlock on this kernel")
                << "\n";
      continue;
    }
    Policy policy{row.kind, {writable, "/dev/null"}, {program}};
    int answer = inSandbox(policy, row.attempt);
    EXPECT_NE(std::find(row.answers.begin(), row.answers.end(), answer), row.answers.end())
        << answer << " " << (answer > 0 ? std::strerror(answer) : "");
  }
}

TEST_F(SandboxTest, AWorkerWithoutProgramsRunsNone) {
  // The system-call filter refuses them before Landlock is asked, as where Landlock is missing.
  Policy policy{Policy::Kind::Worker, {folder_.path().string()}, {}};
  EXPECT_EQ(inSandbox(policy, [] { return run(sandbox::findProgram("true")); }), EPERM);
}

TEST_F(SandboxTest, AProcessMayRemoveItsOwnFolderAndNothingElseBeside) {
  if (!landlock_) GTEST_SKIP() << "no Landlock on this kernel";
  const std::string own = folder_.write("own/file", "x");
  const std::string sibling = folder_.write("sibling.txt", "x");
  Policy policy{Policy::Kind::Worker, {folder_.path() / "own"}, {}, {folder_.path().string()}};
  struct Row {
    const char* name;
    std::function<int()> attempt;
    int answer;
  };
  const Row rows[] = {
      {"a file beside", [&] { return errnoOf(::unlink(sibling.c_str()) == 0); }, EACCES},
      // As the temporary items are removed: the contents, then the folder by rmdir.
      {"its folder",
       [&] {
         return errnoOf(::unlink(own.c_str()) == 0 &&
                        ::rmdir(fs::path(own).parent_path().c_str()) == 0);
       },
       0},
  };
  for (const Row& row : rows) EXPECT_EQ(inSandbox(policy, row.attempt), row.answer) << row.name;
}

TEST(SandboxSupportTest, DescribesLandlockAndSeccomp) {
  struct Row {
    sandbox::Support support;
    std::vector<std::string> lines;
  };
  const Row rows[] = {
      {{7, true}, {"Landlock: available (ABI 7)", "seccomp: available"}},
      {{0, true},
       {"Landlock: not available (the file system stays writable)", "seccomp: available"}},
      {{0, false},
       {"Landlock: not available (the file system stays writable)", "seccomp: not available"}},
  };
  for (const Row& row : rows) EXPECT_EQ(sandbox::describe(row.support), row.lines);
}

TEST(SandboxProgramTest, FindsProgramsOnThePath) {
  struct Row {
    std::string program;
    bool found;
  };
  const Row rows[] = {
      {"sh", true},
      {"/bin/sh", true},
      {"no-such-program-anywhere", false},
      {"/nonexistent/sh", false},
  };
  for (const Row& row : rows) {
    std::string found = sandbox::findProgram(row.program);
    EXPECT_EQ(!found.empty(), row.found) << row.program;
    if (row.found) EXPECT_EQ(found.front(), '/') << row.program;
  }
}

TEST(SandboxLimitsTest, WorkerLimitsAndTheTimeOfOneCall) {
  // Root is never held to a number of tasks, so its limit stays; any other user gets one. As
  // root the other row runs as nobody.
  constexpr uid_t kNobody = 65534;
  struct Row {
    const char* user;
    bool asNobody;
    bool tasksLimited;
  };
  std::vector<Row> rows;
  if (::getuid() == 0) {
    rows.push_back({"root", false, false});
    rows.push_back({"nobody", true, true});
  } else {
    rows.push_back({"this user", false, true});
  }
  rlimit tasksBefore{};
  ::getrlimit(RLIMIT_NPROC, &tasksBefore);
  for (const Row& row : rows) {
    int report[2];
    ASSERT_EQ(::pipe(report), 0);
    pid_t child = ::fork();
    if (child == 0) {
      if (row.asNobody && ::setresuid(kNobody, kNobody, kNobody) != 0) ::_exit(1);
      sandbox::limitWorkerResources(16, 100);
      sandbox::limitProcessorTimeFor(5);
      rlimit limits[4]{};
      ::getrlimit(RLIMIT_CORE, &limits[0]);
      ::getrlimit(RLIMIT_FSIZE, &limits[1]);
      ::getrlimit(RLIMIT_CPU, &limits[2]);
      ::getrlimit(RLIMIT_NPROC, &limits[3]);
      (void)!::write(report[1], limits, sizeof limits);
      ::_exit(0);
    }
    ::close(report[1]);
    rlimit limits[4]{};
    ASSERT_EQ(::read(report[0], limits, sizeof limits), static_cast<ssize_t>(sizeof limits))
        << row.user;
    ::close(report[0]);
    ::waitpid(child, nullptr, 0);
    EXPECT_EQ(limits[0].rlim_max, 0u) << row.user;
    EXPECT_EQ(limits[1].rlim_cur, 16u << 20) << row.user;
    EXPECT_EQ(limits[2].rlim_max, 100u) << row.user;
    // The call's share: what was used (under a second here) plus five seconds, rounded up.
    EXPECT_GE(limits[2].rlim_cur, 6u) << row.user;
    EXPECT_LE(limits[2].rlim_cur, 8u) << row.user;
    if (row.tasksLimited) {
      // The user's tasks now and 64 more: this one at least.
      EXPECT_NE(limits[3].rlim_cur, RLIM_INFINITY) << row.user;
      EXPECT_GE(limits[3].rlim_cur, 65u) << row.user;
    } else {
      EXPECT_EQ(limits[3].rlim_cur, tasksBefore.rlim_cur) << row.user;
    }
  }
}

}  // namespace
}  // namespace ulvek
