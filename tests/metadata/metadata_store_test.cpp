#include "metadata/metadata_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>

#include "platform/property_list.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }

void setRaw(const std::string& path, std::string_view key, const Data& bytes) {
  std::string name = "user." + std::string(key);
  ASSERT_EQ(::setxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size(), 0), 0)
      << key << ": " << std::strerror(errno);
}

std::optional<Data> raw(const std::string& path, std::string_view key) {
  std::string name = "user." + std::string(key);
  Data bytes(70000);
  ssize_t size = ::getxattr(path.c_str(), name.c_str(), bytes.data(), bytes.size());
  if (size < 0) return std::nullopt;
  bytes.resize(static_cast<size_t>(size));
  return bytes;
}

Data plist(const PropertyValue& value) { return binaryPropertyList(value).value(); }

// An error left over from an earlier call, to see that operations clear it.
Error staleError() { return Error{"stale", 1, "stale", {}}; }

TEST(MetaDataStore, ReadingDecodesBinaryPropertyListsOnly) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  Data corrupt = bytesOf("bplist00 this is not a property list");
  Data largeCorrupt = bytesOf("bplist00");
  largeCorrupt.resize(3000, 0xAB);
  struct Row {
    const char* name;
    Data stored;
    std::optional<PropertyValue> expected;
  };
  const Row rows[] = {
      {"string", plist(PropertyValue(u"hello")), PropertyValue(u"hello")},
      {"array", plist(PropertyValue(PropertyArray{u"a", u"b"})),
       PropertyValue(PropertyArray{u"a", u"b"})},
      {"date", plist(PropertyValue(Date{1700000000000000})), PropertyValue(Date{1700000000000000})},
      {"corrupt bplist", corrupt, PropertyValue(corrupt)},
      {"large corrupt bplist", largeCorrupt, PropertyValue(largeCorrupt)},
      {"magic alone", bytesOf("bplist"), PropertyValue(bytesOf("bplist"))},
      {"short magic", bytesOf("bpli"), PropertyValue(bytesOf("bpli"))},
      {"text property list",
       bytesOf("<?xml version=\"1.0\"?><plist version=\"1.0\"><string>x</string></plist>"),
       PropertyValue(
           bytesOf("<?xml version=\"1.0\"?><plist version=\"1.0\"><string>x</string></plist>"))},
      {"plain bytes", bytesOf("yes"), PropertyValue(bytesOf("yes"))},
      {"empty", Data(), std::nullopt},
  };
  for (const Row& row : rows) {
    setRaw(file, "key", row.stored);
    std::optional<Error> error = staleError();
    EXPECT_EQ(OVMetaDataStore::objectForKey("key", file, false, &error), row.expected) << row.name;
    EXPECT_FALSE(error) << row.name;
  }
}

TEST(MetaDataStore, WritingStoresBytesRawAndEverythingElseAsBinaryPropertyList) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  Data fakePlist = bytesOf("bplist00 but not really");
  struct Row {
    const char* name;
    PropertyValue value;
    std::optional<PropertyValue> readBack;
  };
  const Row rows[] = {
      {"string", PropertyValue(u"Grüße \U0001F600"), PropertyValue(u"Grüße \U0001F600")},
      {"integer", PropertyValue(42), PropertyValue(42)},
      {"real", PropertyValue(2.5), PropertyValue(2.5)},
      {"boolean", PropertyValue(true), PropertyValue(true)},
      {"date", PropertyValue(Date{0}), PropertyValue(Date{0})},
      {"array", PropertyValue(PropertyArray{u"x", 1}), PropertyValue(PropertyArray{u"x", 1})},
      {"dictionary", PropertyValue(PropertyDictionary{{"k", u"v"}}),
       PropertyValue(PropertyDictionary{{"k", u"v"}})},
      {"empty string", PropertyValue(u""), PropertyValue(u"")},
      {"bytes", PropertyValue(bytesOf("raw")), PropertyValue(bytesOf("raw"))},
      {"bytes that look like a plist", PropertyValue(fakePlist), PropertyValue(fakePlist)},
      {"empty bytes read as nothing", PropertyValue(Data()), std::nullopt},
  };
  for (const Row& row : rows) {
    std::optional<Error> error = staleError();
    ASSERT_TRUE(OVMetaDataStore::setObject(row.value, "key", file, false, &error)) << row.name;
    EXPECT_FALSE(error) << row.name;
    auto stored = raw(file, "key");
    ASSERT_TRUE(stored) << row.name;
    if (const Data* bytes = row.value.data())
      EXPECT_EQ(*stored, *bytes) << row.name;
    else
      EXPECT_EQ(std::string(stored->begin(), stored->begin() + 8), "bplist00") << row.name;
    EXPECT_EQ(OVMetaDataStore::objectForKey("key", file, false), row.readBack) << row.name;
  }
}

TEST(MetaDataStore, KeyLengthCountsUtf16Units) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  std::string missing = (folder.path() / "missing").string();
  std::string emoji = "\xF0\x9F\x98\x80";  // two UTF-16 units, four UTF-8 bytes
  std::string emoji64, emoji63;
  for (int i = 0; i < 64; ++i) emoji64 += emoji;
  for (int i = 0; i < 63; ++i) emoji63 += emoji;
  struct Row {
    const char* name;
    std::string path;
    std::string key;
    std::optional<std::int64_t> code;  // nothing: success
    std::string_view domain;
  };
  const Row rows[] = {
      {"127 units", file, std::string(127, 'k'), std::nullopt, ""},
      {"128 units", file, std::string(128, 'k'), kMetaDataKeyTooLongError, kMetaDataErrorDomain},
      // Refused before the system is asked: a missing file does not matter.
      {"128 units, missing file", missing, std::string(128, 'k'), kMetaDataKeyTooLongError,
       kMetaDataErrorDomain},
      {"64 emoji are 128 units", file, emoji64, kMetaDataKeyTooLongError, kMetaDataErrorDomain},
      // 127 units pass the check, but 252 bytes exceed the system's name limit.
      {"63 emoji and one letter", file, emoji63 + "k", ERANGE, kPOSIXErrorDomain},
  };
  for (const Row& row : rows) {
    std::optional<Error> error;
    bool written =
        OVMetaDataStore::setObject(PropertyValue(u"v"), row.key, row.path, false, &error);
    EXPECT_EQ(written, !row.code) << row.name;
    bool removed = OVMetaDataStore::removeObjectForKey(row.key, row.path, false, &error);
    EXPECT_EQ(removed, !row.code) << row.name;
    if (!row.code) {
      EXPECT_FALSE(error) << row.name;
      continue;
    }
    ASSERT_TRUE(error) << row.name;
    EXPECT_EQ(error->domain, row.domain) << row.name;
    EXPECT_EQ(error->code, *row.code) << row.name;
    if (*row.code == kMetaDataKeyTooLongError)
      EXPECT_EQ(error->localizedDescription,
                "The metadata key `" + row.key + "' is too long to be used.")
          << row.name;
  }
  // Reading does not check the length.
  std::optional<Error> error;
  EXPECT_FALSE(OVMetaDataStore::objectForKey(std::string(128, 'k'), file, false, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, kPOSIXErrorDomain);
  EXPECT_EQ(error->code, ENODATA);
}

TEST(MetaDataStore, ListingAndDictionaryAnswers) {
  TemporaryFolder folder;
  std::string bare = folder.write("bare", "");
  std::string tagged = folder.write("tagged", "");
  std::string missing = (folder.path() / "missing").string();
  std::string oddName = folder.write("odd-name", "");
  setRaw(tagged, "a", plist(PropertyValue(u"A")));
  setRaw(tagged, "b", bytesOf("B"));
  setRaw(tagged, "empty", Data());
  setRaw(oddName, "\xFF\xFEnot-utf8", bytesOf("x"));
  setRaw(oddName, "fine", bytesOf("y"));

  struct Row {
    const char* name;
    std::string path;
    std::optional<std::set<std::string>> keys;
    std::optional<int> keysErrno;
    std::optional<PropertyDictionary> dictionary;
  };
  const Row rows[] = {
      {"no attributes", bare, std::nullopt, std::nullopt, std::nullopt},
      {"missing path", missing, std::nullopt, ENOENT, std::nullopt},
      {"path with NUL has no file-system form", tagged + std::string(1, '\0'), std::nullopt,
       std::nullopt, std::nullopt},
      {"empty attribute skipped", tagged, std::set<std::string>{"a", "b", "empty"}, std::nullopt,
       PropertyDictionary{{"a", u"A"}, {"b", PropertyValue(bytesOf("B"))}}},
      {"name that is not UTF-8 left out", oddName, std::set<std::string>{"fine"}, std::nullopt,
       PropertyDictionary{{"fine", PropertyValue(bytesOf("y"))}}},
  };
  for (const Row& row : rows) {
    std::optional<Error> error = staleError();
    EXPECT_EQ(OVMetaDataStore::metaDataKeysAtPath(row.path, false, &error), row.keys) << row.name;
    if (row.keysErrno) {
      ASSERT_TRUE(error) << row.name;
      EXPECT_EQ(error->domain, kPOSIXErrorDomain) << row.name;
      EXPECT_EQ(error->code, *row.keysErrno) << row.name;
      EXPECT_EQ(error->localizedDescription, std::strerror(*row.keysErrno)) << row.name;
      EXPECT_EQ(error->info(kFilePathErrorKey), row.path) << row.name;
    } else {
      EXPECT_FALSE(error) << row.name;
    }
    error = staleError();
    EXPECT_EQ(OVMetaDataStore::metaDataDictionaryAtPath(row.path, false, &error), row.dictionary)
        << row.name;
    EXPECT_FALSE(error) << row.name;
  }
}

// Root reads every file, so the unreadable case runs in a child that gives up its privileges.
void becomeNobody() {
  if (::geteuid() != 0) return;
  if (::setgid(65534) != 0 || ::setuid(65534) != 0) std::_Exit(3);
}

TEST(MetaDataStore, UnreadableValuesGiveError201) {
  TemporaryFolder folder;
  std::string file = folder.write("locked", "");
  setRaw(file, "a", bytesOf("1"));
  setRaw(file, "b", bytesOf("2"));
  ::chmod(folder.path().c_str(), 0755);
  ::chmod(file.c_str(), 0);
  // The child prints what it got; the parent checks the line.
  auto check = [&] {
    becomeNobody();
    std::optional<Error> error;
    auto dictionary = OVMetaDataStore::metaDataDictionaryAtPath(file, false, &error);
    if (dictionary || !error) std::_Exit(1);
    std::fprintf(stderr, "[%s %lld %s | %s | %s]\n", error->domain.c_str(),
                 static_cast<long long>(error->code), error->localizedDescription.c_str(),
                 error->info(kFilePathErrorKey).value_or("-").c_str(),
                 error->failureReason().value_or("-").c_str());
    std::_Exit(0);
  };
  std::string expected =
      "\\[com.ulvek-technologies.errordomain.MetaData 201 Couldn't read some "
      "or all metadata attributes. \\| " +
      file + " \\| Permission denied, Permission denied\\]";
  EXPECT_EXIT(check(), ::testing::ExitedWithCode(0), expected);
}

TEST(MetaDataStore, WritingADictionaryContinuesAfterFailures) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  std::string missing = (folder.path() / "missing").string();
  std::string longKey(128, 'k');
  const char16_t loneSurrogate[] = {u'a', 0xD800, 0};
  struct Row {
    const char* name;
    std::string path;
    PropertyDictionary dictionary;
    std::optional<std::string> reasons;  // nothing: success
    std::set<std::string> written;
  };
  const Row rows[] = {
      {"empty dictionary", file, {}, std::nullopt, {}},
      {"all good",
       file,
       {{"one", u"1"}, {"two", PropertyValue(bytesOf("2"))}},
       std::nullopt,
       {"one", "two"}},
      {"too long key and unserializable value beside a good one",
       file,
       {{"good", u"g"}, {longKey, u"x"}, {"surrogate", PropertyValue(loneSurrogate)}},
       "The metadata key `" + longKey + "' is too long to be used., surrogate",
       {"good"}},
      {"missing file",
       missing,
       {{"a", u"1"}, {"b", u"2"}},
       "No such file or directory, No such file or directory",
       {}},
  };
  for (const Row& row : rows) {
    for (const std::string& key : {"one", "two", "good"})
      removexattr(file.c_str(), ("user." + key).c_str());
    std::optional<Error> error = staleError();
    bool ok = OVMetaDataStore::setMetaDataDictionary(row.dictionary, row.path, false, &error);
    EXPECT_EQ(ok, !row.reasons) << row.name;
    if (row.reasons) {
      ASSERT_TRUE(error) << row.name;
      EXPECT_EQ(error->domain, kMetaDataErrorDomain) << row.name;
      EXPECT_EQ(error->code, kMetaDataWriteError) << row.name;
      EXPECT_EQ(error->localizedDescription, "Couldn't write some or all metadata attributes.")
          << row.name;
      EXPECT_EQ(error->info(kFilePathErrorKey), row.path) << row.name;
      EXPECT_EQ(error->failureReason(), row.reasons) << row.name;
    } else {
      EXPECT_FALSE(error) << row.name;
    }
    for (const std::string& key : row.written)
      EXPECT_TRUE(raw(file, key)) << row.name << ": " << key;
  }
}

TEST(MetaDataStore, UnserializableValueGivesError203) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  const char16_t loneSurrogate[] = {0xDC00, 0};
  std::optional<Error> error;
  EXPECT_FALSE(OVMetaDataStore::setObject(PropertyValue(loneSurrogate), "k", file, false, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, kMetaDataErrorDomain);
  EXPECT_EQ(error->code, kMetaDataSerializationError);
  EXPECT_FALSE(error->localizedDescription.empty());
  EXPECT_EQ(error->failureReason(), "k");
  EXPECT_FALSE(raw(file, "k"));
}

// The kernel refuses values above 64 KiB; ext4 without large attributes already refuses 64 KiB.
TEST(MetaDataStore, ValuesOf64KiBAndMore) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  for (std::size_t size : {std::size_t{65536}, std::size_t{100000}}) {
    PropertyValue value(Data(size, 'v'));
    std::optional<Error> error;
    if (OVMetaDataStore::setObject(value, "big", file, false, &error)) {
      EXPECT_EQ(OVMetaDataStore::objectForKey("big", file, false), value) << size;
      continue;
    }
    ASSERT_TRUE(error) << size;
    EXPECT_EQ(error->domain, kPOSIXErrorDomain) << size;
    EXPECT_TRUE(error->code == E2BIG || (size == 65536 && error->code == ENOSPC)) << error->code;
    EXPECT_FALSE(OVMetaDataStore::objectForKey("big", file, false)) << size;
  }
}

TEST(MetaDataStore, SymbolicLinks) {
  TemporaryFolder folder;
  std::string target = folder.write("target", "");
  std::string link = (folder.path() / "link").string();
  std::filesystem::create_symlink(target, link);
  setRaw(target, MetaDataKey::FinderComment, plist(PropertyValue(u"on target")));

  std::optional<Error> error;
  EXPECT_FALSE(OVMetaDataStore::finderCommentAtPath(link, false, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENODATA);
  EXPECT_EQ(OVMetaDataStore::finderCommentAtPath(link, true, &error), PropertyValue(u"on target"));
  EXPECT_FALSE(error);

  EXPECT_FALSE(OVMetaDataStore::metaDataDictionaryAtPath(link, false, &error));
  EXPECT_FALSE(error);
  auto followed = OVMetaDataStore::metaDataDictionaryAtPath(link, true);
  ASSERT_TRUE(followed);
  EXPECT_EQ(followed->size(), 1u);

  // Linux keeps no user attributes on the link itself.
  EXPECT_FALSE(OVMetaDataStore::setWhereFrom(u"https://example.com/", link, false, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EPERM);
  EXPECT_EQ(error->info(kFilePathErrorKey), link);
  EXPECT_TRUE(OVMetaDataStore::setWhereFrom(u"https://example.com/", link, true, &error));
  EXPECT_EQ(raw(target, MetaDataKey::WhereFroms), plist(PropertyValue(u"https://example.com/")));
}

TEST(MetaDataStore, TypedShortcuts) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  std::optional<Error> error;

  EXPECT_TRUE(OVMetaDataStore::setWhereFrom(u"https://example.com/a", file, false, &error));
  // One string, not an array.
  EXPECT_EQ(OVMetaDataStore::objectForKey(MetaDataKey::WhereFroms, file, false),
            PropertyValue(u"https://example.com/a"));
  EXPECT_TRUE(OVMetaDataStore::setWhereFrom(u"", file, false, &error));
  EXPECT_FALSE(raw(file, MetaDataKey::WhereFroms));
  EXPECT_FALSE(OVMetaDataStore::setWhereFrom(u"", file, false, &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, kPOSIXErrorDomain);
  EXPECT_EQ(error->code, ENODATA);

  EXPECT_TRUE(OVMetaDataStore::setIsEditableNote(true, file, false, &error));
  EXPECT_EQ(OVMetaDataStore::objectForKey(MetaDataKey::IsEditableNote, file, false),
            PropertyValue(u"yes"));
  EXPECT_TRUE(OVMetaDataStore::setIsEditableNote(false, file, false, &error));
  EXPECT_FALSE(raw(file, MetaDataKey::IsEditableNote));
  EXPECT_FALSE(OVMetaDataStore::setIsEditableNote(false, file, false, &error));
  EXPECT_EQ(error->code, ENODATA);

  // The comment is answered whatever its kind.
  setRaw(file, MetaDataKey::FinderComment, plist(PropertyValue(7)));
  EXPECT_EQ(OVMetaDataStore::finderCommentAtPath(file, false), PropertyValue(7));
}

// Points the user defaults at a private folder for one test.
class ScopedDefaults {
 public:
  explicit ScopedDefaults(const PropertyDictionary& defaults) {
    const char* old = std::getenv("XDG_CONFIG_HOME");
    if (old) old_ = old;
    folder_.write("ulvekbot/defaults.plist", xmlPropertyList(PropertyValue(defaults)).value());
    ::setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
  }
  ~ScopedDefaults() {
    if (old_)
      ::setenv("XDG_CONFIG_HOME", old_->c_str(), 1);
    else
      ::unsetenv("XDG_CONFIG_HOME");
  }

 private:
  TemporaryFolder folder_;
  std::optional<std::string> old_;
};

TEST(MetaDataStore, UserTagsFollowDisableFinderTags) {
  PropertyArray tags{u"Red\n6", u"Work"};
  struct Row {
    const char* name;
    PropertyDictionary defaults;
    bool written;
  };
  const Row rows[] = {
      {"no defaults", {}, true},
      {"DisableFinderTags false", {{"DisableFinderTags", false}}, true},
      {"DisableFinderTags true", {{"DisableFinderTags", true}}, false},
      {"DisableFinderTags \"YES\"", {{"DisableFinderTags", u"YES"}}, false},
  };
  for (const Row& row : rows) {
    ScopedDefaults defaults(row.defaults);
    TemporaryFolder folder;
    std::string file = folder.write("item", "");
    std::optional<Error> error = staleError();
    EXPECT_EQ(OVMetaDataStore::setUserTags(tags, file, &error), row.written) << row.name;
    EXPECT_FALSE(error) << row.name;
    if (row.written) {
      EXPECT_EQ(raw(file, MetaDataKey::UserTags), plist(PropertyValue(tags))) << row.name;
      EXPECT_EQ(OVMetaDataStore::getUserTags(file), (PropertyArray{u"Red", u"Work"})) << row.name;
    } else {
      EXPECT_FALSE(raw(file, MetaDataKey::UserTags)) << row.name;
      EXPECT_FALSE(OVMetaDataStore::getUserTags(file)) << row.name;
    }
  }
}

TEST(MetaDataStore, UserTagsAreReadFromTheLinkItself) {
  TemporaryFolder folder;
  std::string target = folder.write("target", "");
  std::string link = (folder.path() / "link").string();
  std::filesystem::create_symlink(target, link);
  setRaw(target, MetaDataKey::UserTags, plist(PropertyValue(PropertyArray{u"Blue\n4"})));
  EXPECT_EQ(OVMetaDataStore::getUserTags(target), PropertyArray{u"Blue"});
  EXPECT_FALSE(OVMetaDataStore::getUserTags(link));
}

TEST(MetaDataStore, UserTagsDate) {
  const Date first{1600000000000000}, second{1650000000000000};
  struct Row {
    const char* name;
    std::vector<std::pair<std::string_view, PropertyValue>> stored;
    bool useOpenMeta;
    std::optional<Date> expected;
    std::vector<std::string> log;
  };
  const Row rows[] = {
      {"nothing stored", {}, true, std::nullopt, {}},
      {"first attribute",
       {{MetaDataKey::OMUserTagTime, first}, {MetaDataKey::OpenMetaUserTagTime, second}},
       true,
       first,
       {}},
      {"third attribute", {{MetaDataKey::OpenMetaUserTagTimeShort, second}}, true, second, {}},
      {"wrong kinds are skipped",
       {{MetaDataKey::OMUserTagTime, u"yesterday"},
        {MetaDataKey::OpenMetaUserTagTime, 5},
        {MetaDataKey::OpenMetaUserTagTimeShort, second}},
       true,
       second,
       {"Invalid date: String", "Invalid date: Number"}},
      {"open convention off", {{MetaDataKey::OMUserTagTime, first}}, false, std::nullopt, {}},
  };
  for (const Row& row : rows) {
    TemporaryFolder folder;
    std::string file = folder.write("item", "");
    for (const auto& [key, value] : row.stored) setRaw(file, key, plist(value));
    OVMetaDataStore::setUseOpenMeta(row.useOpenMeta);
    CapturedLog log;
    EXPECT_EQ(OVMetaDataStore::getUserTagsDate(file), row.expected) << row.name;
    EXPECT_EQ(log.lines(), row.log) << row.name;
    OVMetaDataStore::setUseOpenMeta(true);
  }
}

TEST(MetaDataKeyword, LocalizedKeyword) {
  struct Row {
    TextString keyword;
    TextString expected;
  };
  const Row rows[] = {
      {u"com.ulvek-technologies.metadata.flagged", u"Flagged"},
      {u"com.ulvek-technologies.metadata.reply-to-url", u"Reply-To URL"},
      {u"com.example.metadata.priority", u"PRIORITY"},
      {u"org.example.straße", u"STRASSE"},
      {u"nodots", u"NODOTS"},
      {u"trailing.", u""},
      {u"", u""},
  };
  for (const Row& row : rows)
    EXPECT_EQ(OVMetaDataKeyword::localizedKeyword(row.keyword), row.expected)
        << toUtf8(row.keyword);
}

}  // namespace
}  // namespace ulvek
