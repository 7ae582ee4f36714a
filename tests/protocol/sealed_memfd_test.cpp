#include "protocol/sealed_memfd.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "test_support.h"

namespace ulvek {
namespace {

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

OwnedDescriptor memfdWithSeals(std::string_view text, int seals) {
  OwnedDescriptor file(::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ(::write(file.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  if (seals) {
    EXPECT_EQ(::fcntl(file.get(), F_ADD_SEALS, seals), 0);
  }
  return file;
}

TEST(SealedMemfd, OnlyFilesSealedAgainstChangeAreMapped) {
  testing::TemporaryFolder folder;
  int pipeEnds[2] = {-1, -1};
  ASSERT_EQ(::pipe(pipeEnds), 0);
  OwnedDescriptor pipeRead(pipeEnds[0]), pipeWrite(pipeEnds[1]);
  struct Row {
    const char* name;
    std::function<OwnedDescriptor()> make;
    const char* bytes;  // null: refused
    const char* errorPart = nullptr;
  };
  const std::vector<Row> rows = {
      {"made here", [] { return makeSealedMemfd(bytesOf("some data"), "t").value(); }, "some data"},
      {"empty", [] { return makeSealedMemfd({}, "t").value(); }, ""},
      {"sealed by hand", [] { return memfdWithSeals("abc", kRequiredSeals); }, "abc"},
      {"unsealed", [] { return memfdWithSeals("abc", 0); }, nullptr, "not sealed"},
      {"still writable", [] { return memfdWithSeals("abc", F_SEAL_SHRINK | F_SEAL_GROW); }, nullptr,
       "F_SEAL_WRITE"},
      {"may grow", [] { return memfdWithSeals("abc", F_SEAL_WRITE | F_SEAL_SHRINK); }, nullptr,
       "not sealed"},
      {"a plain file",
       [&] { return OwnedDescriptor(::open(folder.write("f", "abc").c_str(), O_RDONLY)); }, nullptr,
       "not a memory file"},
      {"a pipe", [&] { return OwnedDescriptor(::dup(pipeRead.get())); }, nullptr,
       "not a memory file"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    OwnedDescriptor file = row.make();
    ASSERT_GE(file.get(), 0);
    Result<SealedBytes> mapped = SealedBytes::map(file.get());
    if (!row.bytes) {
      ASSERT_FALSE(mapped);
      EXPECT_EQ(mapped.error().domain, "org.freedesktop.DBus.Error.InvalidArgs");
      EXPECT_NE(mapped.error().localizedDescription.find(row.errorPart), std::string::npos)
          << mapped.error().localizedDescription;
      continue;
    }
    ASSERT_TRUE(mapped) << mapped.error().localizedDescription;
    std::span<const std::uint8_t> bytes = mapped->bytes();
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), row.bytes);
  }
}

// The sender cannot lift the seals afterwards, nor change the bytes under the reader's mapping.
TEST(SealedMemfd, MadeFilesCannotBeChangedOrUnsealed) {
  Result<OwnedDescriptor> file = makeSealedMemfd(bytesOf("fixed"), "t");
  ASSERT_TRUE(file);
  EXPECT_EQ(::fcntl(file->get(), F_GET_SEALS), kRequiredSeals | F_SEAL_SEAL);
  EXPECT_LT(::pwrite(file->get(), "x", 1, 0), 0);
  EXPECT_NE(::ftruncate(file->get(), 1), 0);
  EXPECT_NE(::fcntl(file->get(), F_ADD_SEALS, F_SEAL_FUTURE_WRITE), 0);
  Result<SealedBytes> mapped = SealedBytes::map(file->get());
  ASSERT_TRUE(mapped);
  EXPECT_EQ(mapped->bytes().size(), 5u);
}

}  // namespace
}  // namespace ulvek
