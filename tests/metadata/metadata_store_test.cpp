#include "metadata/metadata_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "base/property_list.h"
#include "platform/extended_attributes.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::CapturedLog;
using testing::TemporaryFolder;

Data bytesOf(std::string_view text) { return Data(text.begin(), text.end()); }
Data plist(const PropertyValue& value) { return binaryPropertyList(value).value(); }
void setRaw(const std::string& path, std::string_view key, const Data& bytes) {
  EXPECT_TRUE(writeMetadataAttribute(path, key, bytes, false)) << key;
}
std::optional<Data> raw(const std::string& path, std::string_view key) {
  return readMetadataAttribute(path, key, false);
}
// One line for an error: its domain, code, description, path and failure reason.
std::string describe(const std::optional<Error>& error) {
  if (!error) return "none";
  std::string domain = error->domain == kMetaDataErrorDomain ? "MetaData"
                       : error->domain == kPOSIXErrorDomain  ? "POSIX"
                                                             : error->domain;
  return domain + " " + std::to_string(error->code) + " " + error->localizedDescription + " | " +
         error->info(kFilePathErrorKey).value_or("-") + " | " +
         error->failureReason().value_or("-");
}
std::string describe(const Status& status) {
  return status.ok() ? "none" : describe(std::optional(status.error()));
}
template <typename T>
std::string describe(const Result<T>& result) {
  return result.ok() ? "none" : describe(std::optional(result.error()));
}
// The value of a read that must not fail.
template <typename T>
T valueOf(Result<T> result) {
  EXPECT_TRUE(result.ok()) << describe(result);
  return result.ok() ? std::move(result).value() : T();
}
std::string tooLong(const std::string& key) {
  return "MetaData 200 The metadata key `" + key + "' is too long to be used. | - | -";
}

// Bytes are stored as they are and everything else as a binary property list; reading decodes
// only what begins with "bplist" and parses.
TEST(MetaDataStore, ValuesRoundTripThroughRealAttributes) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  Data largeCorrupt = bytesOf("bplist00");
  largeCorrupt.resize(3000, 0xAB);
  Data textList =
      bytesOf("<?xml version=\"1.0\"?><plist version=\"1.0\"><string>x</string></plist>");
  const std::pair<const char*, PropertyValue> rows[] = {
      {"string", u"Grüße \U0001F600"},
      {"dictionary", PropertyDictionary{{"k", PropertyArray{u"x", 1, Date{0}}}}},
      {"corrupt bplist", bytesOf("bplist00 this is not a property list")},
      {"large corrupt bplist", largeCorrupt},
      {"magic alone", bytesOf("bplist")},
      {"short magic", bytesOf("bpli")},
      {"text property list", textList},
      {"empty bytes read as nothing", Data()},
  };
  for (const auto& [name, value] : rows) {
    Status written = OVMetaDataStore::setObject(value, "key", file, false);
    ASSERT_TRUE(written.ok()) << name << describe(written);
    Data stored = raw(file, "key").value();
    const Data* bytes = value.data();
    EXPECT_EQ(stored, bytes ? *bytes : plist(value)) << name;
    EXPECT_EQ(valueOf(OVMetaDataStore::objectForKey("key", file, false)),
              bytes && bytes->empty() ? std::nullopt : std::optional(value))
        << name;
  }
}

TEST(MetaDataStore, ErrorsCarryTheirCodesAndMessages) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  std::string emoji63;
  for (int i = 0; i < 63; ++i) emoji63 += "\xF0\x9F\x98\x80";  // two UTF-16 units each
  std::string emoji64 = emoji63 + "\xF0\x9F\x98\x80";
  struct Row {
    const char* name;
    std::string path, key, error;  // the error of set and of remove
  };
  const Row rows[] = {
      {"127 units", file, std::string(127, 'k'), "none"},
      {"128 units", file, std::string(128, 'k'), tooLong(std::string(128, 'k'))},
      // Refused before the system is asked: a missing file does not matter.
      {"128 units, missing file", file + ".missing", std::string(128, 'k'),
       tooLong(std::string(128, 'k'))},
      {"64 emoji are 128 units", file, emoji64, tooLong(emoji64)},
      // 127 units pass the check, but 253 bytes exceed the system's name limit.
      {"63 emoji and one letter", file, emoji63 + "k",
       "POSIX 34 Numerical result out of range | " + file + " | -"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(describe(OVMetaDataStore::setObject(u"v", row.key, row.path, false)), row.error)
        << row.name;
    EXPECT_EQ(describe(OVMetaDataStore::removeObjectForKey(row.key, row.path, false)), row.error)
        << row.name;
  }
  // Reading does not check the length.
  EXPECT_EQ(describe(OVMetaDataStore::objectForKey(std::string(128, 'k'), file, false)),
            "POSIX 61 No data available | " + file + " | -");

  // Error 203: the serializer's message, the key as the reason, nothing written.
  const PropertyValue loneSurrogate(TextString(1, char16_t(0xDC00)));
  Status refused = OVMetaDataStore::setObject(loneSurrogate, "k", file, false);
  ASSERT_FALSE(refused.ok());
  EXPECT_FALSE(refused.error().localizedDescription.empty());
  EXPECT_EQ(describe(refused), "MetaData 203 " + refused.error().localizedDescription + " | - | k");
  EXPECT_FALSE(raw(file, "k"));

  // Error 202: writing a dictionary goes on after failures and joins their reasons.
  EXPECT_TRUE(OVMetaDataStore::setMetaDataDictionary({}, file, false).ok());
  std::string longKey(128, 'k');
  Status partly = OVMetaDataStore::setMetaDataDictionary(
      {{"good", u"g"}, {longKey, u"x"}, {"surrogate", loneSurrogate}}, file, false);
  EXPECT_TRUE(raw(file, "good"));
  EXPECT_EQ(describe(partly), "MetaData 202 Couldn't write some or all metadata attributes. | " +
                                  file + " | The metadata key `" + longKey +
                                  "' is too long to be used., surrogate");
  Status missing =
      OVMetaDataStore::setMetaDataDictionary({{"a", u"1"}, {"b", u"2"}}, file + ".missing", false);
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.error().failureReason(),
            "No such file or directory, No such file or directory");
}

TEST(MetaDataStore, ListingAndDictionaryOfMissingBareAndOddItems) {
  TemporaryFolder folder;
  std::string bare = folder.write("bare", "");
  std::string tagged = folder.write("tagged", "");
  std::string oddName = folder.write("odd-name", "");
  std::string dangling = (folder.path() / "dangling").string();
  std::filesystem::create_symlink(folder.path() / "nowhere", dangling);
  setRaw(tagged, "a", plist(PropertyValue(u"A")));
  setRaw(tagged, "b", bytesOf("B"));
  setRaw(tagged, "empty", Data());
  setRaw(oddName, "\xFF\xFEnot-utf8", bytesOf("x"));
  setRaw(oddName, "fine", bytesOf("y"));
  using Keys = std::set<std::string>;
  struct Row {
    const char* name;
    std::string path;
    bool traverseLink, listFails;
    std::optional<Keys> keys;
    std::optional<PropertyDictionary> dictionary;
  };
  const Row rows[] = {
      {"no attributes", bare, false, false, std::nullopt, std::nullopt},
      {"missing path", (folder.path() / "missing").string(), false, true, std::nullopt, {}},
      {"dangling link followed", dangling, true, true, std::nullopt, std::nullopt},
      {"path with NUL has no file-system form", tagged + '\0', false, false, std::nullopt, {}},
      {"empty attribute skipped", tagged, false, false, Keys{"a", "b", "empty"},
       PropertyDictionary{{"a", u"A"}, {"b", bytesOf("B")}}},
      {"name that is not UTF-8 left out", oddName, false, false, Keys{"fine"},
       PropertyDictionary{{"fine", bytesOf("y")}}},
  };
  for (const Row& row : rows) {
    Result<std::optional<Keys>> keys =
        OVMetaDataStore::metaDataKeysAtPath(row.path, row.traverseLink);
    EXPECT_EQ(keys.ok() ? keys.value() : std::nullopt, row.keys) << row.name;
    EXPECT_EQ(describe(keys),
              row.listFails ? "POSIX 2 No such file or directory | " + row.path + " | -" : "none")
        << row.name;
    Partial<std::optional<PropertyDictionary>> dictionary =
        OVMetaDataStore::metaDataDictionaryAtPath(row.path, row.traverseLink);
    EXPECT_EQ(dictionary.value, row.dictionary) << row.name;
    EXPECT_TRUE(dictionary.status.ok()) << row.name;
  }
}

// Root reads every file, so the unreadable case runs in a child that gives up its privileges and
// prints what it got.
TEST(MetaDataStore, UnreadableValuesGiveError201) {
  TemporaryFolder folder;
  std::string file = folder.write("locked", "");
  setRaw(file, "a", bytesOf("1"));
  setRaw(file, "b", bytesOf("2"));
  ::chmod(folder.path().c_str(), 0755);
  ::chmod(file.c_str(), 0);
  const std::string expected = "MetaData 201 Couldn't read some or all metadata attributes. | " +
                               file + " | Permission denied, Permission denied";
  auto check = [&] {
    if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) std::_Exit(3);
    Partial<std::optional<PropertyDictionary>> read =
        OVMetaDataStore::metaDataDictionaryAtPath(file, false);
    std::fprintf(stderr, "%s\n", describe(read.status).c_str());
    std::_Exit(read.value.has_value() || describe(read.status) != expected ? 1 : 0);
  };
  EXPECT_EXIT(check(), ::testing::ExitedWithCode(0), "");
}

// Linux keeps no user attributes on a link itself: traverseLink NO sees nothing there.
TEST(MetaDataStore, SymbolicLinksAndTypedShortcuts) {
  TemporaryFolder folder;
  std::string target = folder.write("target", "");
  std::string link = (folder.path() / "link").string();
  std::filesystem::create_symlink(target, link);
  setRaw(target, MetaDataKey::FinderComment, plist(PropertyValue(u"on target")));
  setRaw(target, MetaDataKey::UserTags, plist(PropertyValue(PropertyArray{u"Blue\n4"})));

  EXPECT_EQ(describe(OVMetaDataStore::finderCommentAtPath(link, false)),
            "POSIX 61 No data available | " + link + " | -");
  EXPECT_EQ(valueOf(OVMetaDataStore::finderCommentAtPath(link, true)), PropertyValue(u"on target"));
  Partial<std::optional<PropertyDictionary>> onLink =
      OVMetaDataStore::metaDataDictionaryAtPath(link, false);
  EXPECT_FALSE(onLink.value);
  EXPECT_TRUE(onLink.status.ok());
  EXPECT_EQ(OVMetaDataStore::metaDataDictionaryAtPath(link, true).value->size(), 2u);
  // Tags are read from the item itself.
  EXPECT_EQ(OVMetaDataStore::getUserTags(target).value, PropertyArray{u"Blue"});
  EXPECT_FALSE(OVMetaDataStore::getUserTags(link).value);

  EXPECT_EQ(describe(OVMetaDataStore::setWhereFrom(u"https://example.com/", link, false)),
            "POSIX 1 Operation not permitted | " + link + " | -");
  EXPECT_TRUE(OVMetaDataStore::setWhereFrom(u"https://example.com/", link, true).ok());
  // One string, not an array; an empty one removes the attribute, and fails when there is none.
  EXPECT_EQ(raw(target, MetaDataKey::WhereFroms), plist(PropertyValue(u"https://example.com/")));
  EXPECT_TRUE(OVMetaDataStore::setWhereFrom(u"", target, false).ok());
  EXPECT_EQ(describe(OVMetaDataStore::setWhereFrom(u"", target, false)),
            "POSIX 61 No data available | " + target + " | -");

  EXPECT_TRUE(OVMetaDataStore::setIsEditableNote(true, target, false).ok());
  EXPECT_EQ(raw(target, MetaDataKey::IsEditableNote), plist(PropertyValue(u"yes")));
  EXPECT_TRUE(OVMetaDataStore::setIsEditableNote(false, target, false).ok());
  EXPECT_FALSE(raw(target, MetaDataKey::IsEditableNote));
}

TEST(MetaDataStore, UserTagsFollowDisableFinderTags) {
  const char* saved = std::getenv("XDG_CONFIG_HOME");
  std::string previous = saved ? saved : "";
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  ::setenv("XDG_CONFIG_HOME", folder.path().c_str(), 1);
  const std::pair<PropertyDictionary, bool> rows[] = {
      {{}, true},
      {{{"DisableFinderTags", true}}, false},
      {{{"DisableFinderTags", u"YES"}}, false},
  };
  for (const auto& [defaults, written] : rows) {
    folder.write("ulvekbot/defaults.plist", xmlPropertyList(PropertyValue(defaults)).value());
    removeMetadataAttribute(file, MetaDataKey::UserTags, false);
    EXPECT_EQ(valueOf(OVMetaDataStore::setUserTags({u"Red\n6", u"Work"}, file)), written);
    EXPECT_EQ(OVMetaDataStore::getUserTags(file).value,
              written ? std::optional(PropertyArray{u"Red", u"Work"}) : std::nullopt);
  }
  previous.empty() ? ::unsetenv("XDG_CONFIG_HOME")
                   : ::setenv("XDG_CONFIG_HOME", previous.c_str(), 1);
}

TEST(MetaDataStore, UserTagsDate) {
  TemporaryFolder folder;
  std::string file = folder.write("item", "");
  EXPECT_FALSE(OVMetaDataStore::getUserTagsDate(file));
  const Date date{1650000000000000};
  setRaw(file, MetaDataKey::OMUserTagTime, plist(u"yesterday"));
  setRaw(file, MetaDataKey::OpenMetaUserTagTime, plist(5));
  setRaw(file, MetaDataKey::OpenMetaUserTagTimeShort, plist(date));
  {
    CapturedLog log;
    EXPECT_EQ(OVMetaDataStore::getUserTagsDate(file), date);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{"Invalid date: String", "Invalid date: Number"}));
  }
  OVMetaDataStore::setUseOpenMeta(false);
  EXPECT_FALSE(OVMetaDataStore::getUserTagsDate(file));
  OVMetaDataStore::setUseOpenMeta(true);
  setRaw(file, MetaDataKey::OMUserTagTime, plist(Date{0}));  // the first attribute wins
  EXPECT_EQ(OVMetaDataStore::getUserTagsDate(file), Date{0});
}

TEST(MetaDataKeyword, LocalizedKeyword) {
  EXPECT_EQ(OVMetaDataKeyword::localizedKeyword(u"com.ulvek-technologies.metadata.reply-to-url"),
            u"Reply-To URL");
  EXPECT_EQ(OVMetaDataKeyword::localizedKeyword(u"org.example.straße"), u"STRASSE");
  EXPECT_EQ(OVMetaDataKeyword::localizedKeyword(u"trailing."), u"");
}

}  // namespace
}  // namespace ulvek
