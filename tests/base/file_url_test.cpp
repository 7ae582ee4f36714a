#include "base/file_url.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace ulvek {
namespace {

using Answer = std::optional<std::string>;
constexpr std::nullopt_t kNone = std::nullopt;

// Each path to its exact URL, and the URL back to the same path.
TEST(FileURL, EncodesEverythingButUnreservedAndRoundTrips) {
  struct Row {
    const char* name;
    std::string path, url;
  };
  const std::vector<Row> rows = {
      {"root", "/", "file:///"},
      {"unreserved kept", "/a-b_c.d~e/F9", "file:///a-b_c.d~e/F9"},
      {"space", "/tmp/a b.txt", "file:///tmp/a%20b.txt"},
      {"percent", "/tmp/100%.txt", "file:///tmp/100%25.txt"},
      {"percent that looks encoded", "/tmp/%41", "file:///tmp/%2541"},
      {"fragment mark", "/tmp/#1.txt", "file:///tmp/%231.txt"},
      {"query mark", "/tmp/what?.txt", "file:///tmp/what%3F.txt"},
      {"reserved delimiters", "/a:b;c=d&e+f,g@h", "file:///a%3Ab%3Bc%3Dd%26e%2Bf%2Cg%40h"},
      {"UTF-8 bytes", "/tmp/\xC3\xA9t\xC3\xA9", "file:///tmp/%C3%A9t%C3%A9"},
      {"four-byte UTF-8", "/\xF0\x9F\x98\x80", "file:///%F0%9F%98%80"},
      {"control and DEL", "/a\tb\x7F", "file:///a%09b%7F"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(fileURLWithPath(row.path), row.url);
    EXPECT_EQ(pathOfFileURL(row.url), row.path);
  }
}

TEST(FileURL, ParsesLocalURLsOnly) {
  struct Row {
    const char* url;
    Answer path;
  };
  const std::vector<Row> rows = {
      {"file:///tmp/x", "/tmp/x"},
      {"file://localhost/tmp/x", "/tmp/x"},
      {"FILE://LocalHost/tmp/x", "/tmp/x"},
      {"file:///tmp/a%20b?query#fragment", "/tmp/a b"},
      {"file:///tmp/x#", "/tmp/x"},
      {"file:///tmp/a%2fb", "/tmp/a/b"},
      {"file://localhost", kNone},
      {"file://localhostx/tmp", kNone},
      {"file://host/x", kNone},
      {"file:/tmp/x", kNone},
      {"file://", kNone},
      {"http://example.com/x", kNone},
      {"", kNone},
      {"file:///tmp/%zz", kNone},
      {"file:///tmp/%4", kNone},
      {"file:///tmp/%FF", kNone},
  };
  for (const Row& row : rows) EXPECT_EQ(pathOfFileURL(row.url), row.path) << row.url;
}

TEST(FileURL, PercentDecodingWantsWholeEscapesAndUTF8) {
  struct Row {
    const char* text;
    Answer decoded;
  };
  const std::vector<Row> rows = {
      {"", ""},       {"plain", "plain"}, {"a%20b", "a b"}, {"%c3%A9", "\xC3\xA9"},
      {"%25", "%"},   {"100%", kNone},    {"%2", kNone},    {"%g0", kNone},
      {"%C3", kNone}, {"%C0%80", kNone},
  };
  for (const Row& row : rows) EXPECT_EQ(percentDecoded(row.text), row.decoded) << row.text;
}

}  // namespace
}  // namespace ulvek
