#include "service/dbus_values.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <limits>

namespace ulvek::dbus {
namespace {

// An sd-bus object on one end of a socket pair: enough to build messages, seal them and read
// them back without any bus daemon.
class Loopback {
 public:
  Loopback() {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    peer_ = ends[1];
    EXPECT_GE(sd_bus_new(&bus_), 0);
    EXPECT_GE(sd_bus_set_fd(bus_, ends[0], ends[0]), 0);
    EXPECT_GE(sd_bus_start(bus_), 0);
  }
  ~Loopback() {
    sd_bus_close_unref(bus_);
    close(peer_);
  }

  sd_bus_message* newMessage() {
    sd_bus_message* message = nullptr;
    EXPECT_GE(sd_bus_message_new_method_call(bus_, &message, "org.example", "/org/example",
                                             "org.example", "Echo"),
              0);
    return message;
  }

  // Seals a written message and rewinds it for reading.
  static void seal(sd_bus_message* message) {
    ASSERT_GE(sd_bus_message_seal(message, 1, 0), 0);
    ASSERT_GE(sd_bus_message_rewind(message, true), 0);
  }

  PropertyDictionary roundTrip(const PropertyDictionary& dictionary) {
    sd_bus_message* message = newMessage();
    EXPECT_GE(appendDictionary(message, dictionary), 0);
    seal(message);
    PropertyDictionary back;
    EXPECT_GE(readDictionary(message, back), 0);
    EXPECT_GT(sd_bus_message_at_end(message, true), 0);
    sd_bus_message_unref(message);
    return back;
  }

 private:
  sd_bus* bus_ = nullptr;
  int peer_ = -1;
};

constexpr std::int64_t kInt64Min = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kInt64Max = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kUint64Max = std::numeric_limits<std::uint64_t>::max();

struct ValueRow {
  const char* name;
  PropertyValue value;
  const char* signature;  // what the variant must hold on the wire
};

std::vector<ValueRow> valueRows() {
  PropertyDictionary nested{{"inner", PropertyValue(PropertyArray{std::int64_t{1}, u"two"})},
                            {"date", Date{-1}}};
  return {
      {"ascii string", u"Title", "s"},
      {"empty string", u"", "s"},
      {"astral characters", u"\U0001F600 \U00020000 e\u0301", "s"},
      {"line feeds and tabs", u"a\nb\tc\r\n", "s"},
      {"signed minimum", kInt64Min, "x"},
      {"signed minus one", std::int64_t{-1}, "x"},
      {"signed maximum", kInt64Max, "x"},
      {"unsigned zero", std::uint64_t{0}, "t"},
      {"unsigned maximum", kUint64Max, "t"},
      {"unsigned above signed range", std::uint64_t{1} << 63, "t"},
      {"real", 0.1, "d"},
      {"real huge", 1.7976931348623157e308, "d"},
      {"real infinity", std::numeric_limits<double>::infinity(), "d"},
      {"real negative tiny", -4.9e-324, "d"},
      {"true", true, "b"},
      {"false", false, "b"},
      {"date epoch", Date{0}, "(x)"},
      {"date now", Date{1'700'000'000'123'456}, "(x)"},
      {"date one microsecond before epoch", Date{-1}, "(x)"},
      {"date year one", Date{-62'135'596'800'000'000}, "(x)"},
      {"date minimum", Date{kInt64Min}, "(x)"},
      {"date maximum", Date{kInt64Max}, "(x)"},
      {"data empty", Data{}, "ay"},
      {"data with zero and high bytes", Data{0x00, 0xFF, 0x80, 0x00}, "ay"},
      {"array empty", PropertyArray{}, "av"},
      {"array mixed", PropertyArray{u"a", std::uint64_t{7}, Date{5}, Data{1}, true}, "av"},
      {"array nested", PropertyArray{PropertyArray{PropertyArray{u"deep"}}}, "av"},
      {"dictionary empty", PropertyDictionary{}, "a{sv}"},
      {"dictionary nested", nested, "a{sv}"},
  };
}

TEST(DBusValuesTest, EveryKindSurvivesTheTripWithItsWireType) {
  Loopback loopback;
  for (const ValueRow& row : valueRows()) {
    SCOPED_TRACE(row.name);
    PropertyDictionary sent{{"key", row.value}};
    EXPECT_EQ(loopback.roundTrip(sent), sent);

    sd_bus_message* message = loopback.newMessage();
    ASSERT_GE(appendDictionary(message, sent), 0);
    Loopback::seal(message);
    ASSERT_GT(sd_bus_message_enter_container(message, 'a', "{sv}"), 0);
    ASSERT_GT(sd_bus_message_enter_container(message, 'e', "sv"), 0);
    ASSERT_GE(sd_bus_message_skip(message, "s"), 0);
    char type = 0;
    const char* contents = nullptr;
    ASSERT_GT(sd_bus_message_peek_type(message, &type, &contents), 0);
    EXPECT_EQ(type, 'v');
    EXPECT_STREQ(contents, row.signature);
    sd_bus_message_unref(message);
  }
}

TEST(DBusValuesTest, NotANumberStaysNotANumber) {
  Loopback loopback;
  PropertyDictionary back = loopback.roundTrip({{"nan", std::numeric_limits<double>::quiet_NaN()}});
  ASSERT_TRUE(back.count("nan"));
  ASSERT_NE(back.at("nan").real(), nullptr);
  EXPECT_TRUE(std::isnan(*back.at("nan").real()));
}

TEST(DBusValuesTest, AFullResultSurvivesTheTrip) {
  PropertyDictionary values;
  for (std::string_view key : ImportKey::All) values.emplace(key, fromUtf8(key));
  values.insert_or_assign(std::string(ImportKey::FileSize), kUint64Max);
  values.insert_or_assign(std::string(ImportKey::Creation), Date{-86'400'000'000});
  values.insert_or_assign(std::string(ImportKey::Modification), Date{1'700'000'000'000'001});
  ImportResult sent = ImportResult::fromValues(values);

  Loopback loopback;
  sd_bus_message* message = loopback.newMessage();
  ASSERT_GE(appendResult(message, sent), 0);
  Loopback::seal(message);
  ImportResult back;
  ASSERT_GE(readResult(message, back), 0);
  sd_bus_message_unref(message);
  EXPECT_EQ(back, sent);
  EXPECT_EQ(back.size(), ImportKey::All.size());
}

// What a D-Bus string cannot hold arrives as U+FFFD instead of failing the whole message.
TEST(DBusValuesTest, TextThatDBusStringsCannotHoldIsReplaced) {
  struct Row {
    const char* name;
    TextString text;
    TextString expected;
  };
  const std::vector<Row> rows = {
      {"clean text passes unchanged", u"caf\u00E9 \U0001F600", u"caf\u00E9 \U0001F600"},
      {"lone high surrogate", TextString(u"a") + char16_t(0xD83D) + u"b", u"a\uFFFDb"},
      {"lone low surrogate at end", TextString(u"a") + char16_t(0xDE00), u"a\uFFFD"},
      {"reversed surrogate pair", TextString{char16_t(0xDE00), char16_t(0xD83D)}, u"\uFFFD\uFFFD"},
      {"NUL", TextString(u"a\0b", 3), u"a\uFFFDb"},
      {"noncharacter U+FFFF", u"a\uFFFFb", u"a\uFFFDb"},
      {"noncharacter U+FFFE", u"\uFFFE", u"\uFFFD"},
      {"noncharacter U+FDD0", u"\uFDD0x", u"\uFFFDx"},
      {"astral noncharacter U+1FFFF", u"x\U0001FFFF", u"x\uFFFD"},
      {"astral noncharacter U+10FFFE", u"\U0010FFFE", u"\uFFFD"},
      {"U+FFFD itself", u"\uFFFD", u"\uFFFD"},
      {"U+FDEF edge and U+FDF0 beyond", u"\uFDEF\uFDF0", u"\uFFFD\uFDF0"},
  };
  Loopback loopback;
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(fromUtf8(wireString(TextView(row.text))), row.expected);
    PropertyDictionary back = loopback.roundTrip({{"text", row.text}});
    ASSERT_TRUE(back.count("text"));
    EXPECT_EQ(back.at("text"), PropertyValue(row.expected));
  }
}

TEST(DBusValuesTest, KeysThatAreNotUtf8AreRepaired) {
  Loopback loopback;
  PropertyDictionary back = loopback.roundTrip(
      {{"good \xF0\x9F\x98\x80", 1}, {std::string("bad \xFF\xFE", 6), 2}, {"", 3}});
  EXPECT_EQ(back, (PropertyDictionary{
                      {"good \xF0\x9F\x98\x80", 1}, {"bad \xEF\xBF\xBD\xEF\xBF\xBD", 2}, {"", 3}}));
}

TEST(DBusValuesTest, NarrowerWireTypesAreWidenedAndOthersRefused) {
  Loopback loopback;
  sd_bus_message* message = loopback.newMessage();
  ASSERT_GE(sd_bus_message_append(message, "a{sv}", 7, "byte", "y", 200, "int16", "n", -3, "uint16",
                                  "q", 65535, "int32", "i", -70000, "uint32", "u", 4000000000u,
                                  "path", "o", "/a/b", "signature", "g", "a{sv}"),
            0);
  Loopback::seal(message);
  PropertyDictionary back;
  ASSERT_GE(readDictionary(message, back), 0);
  sd_bus_message_unref(message);
  EXPECT_EQ(back, (PropertyDictionary{{"byte", std::uint64_t{200}},
                                      {"int16", std::int64_t{-3}},
                                      {"uint16", std::uint64_t{65535}},
                                      {"int32", std::int64_t{-70000}},
                                      {"uint32", std::uint64_t{4000000000u}},
                                      {"path", u"/a/b"},
                                      {"signature", u"a{sv}"}}));

  struct Refused {
    const char* name;
    const char* signature;
  };
  for (const Refused& row : {Refused{"string array", "as"}, Refused{"struct of two", "(xx)"},
                             Refused{"dictionary of strings", "a{ss}"}}) {
    SCOPED_TRACE(row.name);
    sd_bus_message* foreign = loopback.newMessage();
    ASSERT_GE(sd_bus_message_open_container(foreign, 'a', "{sv}"), 0);
    ASSERT_GE(sd_bus_message_open_container(foreign, 'e', "sv"), 0);
    ASSERT_GE(sd_bus_message_append_basic(foreign, 's', "key"), 0);
    ASSERT_GE(sd_bus_message_open_container(foreign, 'v', row.signature), 0);
    std::string_view signature = row.signature;
    if (signature == "as") {
      ASSERT_GE(sd_bus_message_append(foreign, "as", 1, "x"), 0);
    } else if (signature == "(xx)") {
      ASSERT_GE(sd_bus_message_append(foreign, "(xx)", std::int64_t{1}, std::int64_t{2}), 0);
    } else {
      ASSERT_GE(sd_bus_message_append(foreign, "a{ss}", 1, "a", "b"), 0);
    }
    ASSERT_GE(sd_bus_message_close_container(foreign), 0);
    ASSERT_GE(sd_bus_message_close_container(foreign), 0);
    ASSERT_GE(sd_bus_message_close_container(foreign), 0);
    Loopback::seal(foreign);
    PropertyDictionary ignored;
    EXPECT_EQ(readDictionary(foreign, ignored), -EBADMSG);
    sd_bus_message_unref(foreign);
  }
}

TEST(DBusValuesTest, ReadingSomethingElseThanADictionaryFails) {
  Loopback loopback;
  sd_bus_message* message = loopback.newMessage();
  ASSERT_GE(sd_bus_message_append(message, "s", "not a dictionary"), 0);
  Loopback::seal(message);
  PropertyDictionary ignored;
  EXPECT_LT(readDictionary(message, ignored), 0);
  sd_bus_message_unref(message);
}

}  // namespace
}  // namespace ulvek::dbus
