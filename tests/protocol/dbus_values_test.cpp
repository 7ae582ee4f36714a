#include "protocol/dbus_values.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cmath>
#include <functional>
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

  // A method call that `fill` writes, sealed and rewound for reading; null when `fill` failed.
  sd_bus_message* sealed(const std::function<int(sd_bus_message*)>& fill) {
    sd_bus_message* message = nullptr;
    sd_bus_message_new_method_call(bus_, &message, "org.example", "/org/example", "org.example",
                                   "Echo");
    if (fill(message) < 0 || sd_bus_message_seal(message, 1, 0) < 0 ||
        sd_bus_message_rewind(message, true) < 0) {
      ADD_FAILURE() << "cannot write the message";
      return sd_bus_message_unref(message);
    }
    return message;
  }

  PropertyDictionary roundTrip(const PropertyDictionary& dictionary) {
    sd_bus_message* message = sealed([&](auto* m) { return appendDictionary(m, dictionary); });
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

TEST(DBusValuesTest, EveryKindSurvivesTheTripWithItsWireType) {
  // Each value and what its variant must hold on the wire.
  const std::pair<PropertyValue, std::string> rows[] = {
      {u"", "s"},
      {u"\U0001F600 \U00020000 e\u0301\r\n", "s"},
      {kInt64Min, "x"},
      {kInt64Max, "x"},
      {kUint64Max, "t"},
      {std::uint64_t{1} << 63, "t"},
      {0.1, "d"},
      {std::numeric_limits<double>::infinity(), "d"},
      {false, "b"},
      {Date{-1}, "(x)"},
      {Date{kInt64Min}, "(x)"},
      {Date{kInt64Max}, "(x)"},
      {Data{0x00, 0xFF, 0x80, 0x00}, "ay"},
      {PropertyArray{}, "av"},
      {PropertyArray{u"a", std::uint64_t{7}, Date{5}, Data{1}, PropertyArray{PropertyArray{}}},
       "av"},
      {PropertyDictionary{{"in", PropertyDictionary{{"d", Date{0}}}}}, "a{sv}"},
  };
  Loopback loopback;
  int index = 0;
  for (const auto& [value, signature] : rows) {
    SCOPED_TRACE("row " + std::to_string(index++));
    PropertyDictionary sent{{"key", value}};
    EXPECT_EQ(loopback.roundTrip(sent), sent);

    sd_bus_message* message = loopback.sealed([&](auto* m) { return appendDictionary(m, sent); });
    ASSERT_GT(sd_bus_message_enter_container(message, 'a', "{sv}"), 0);
    ASSERT_GT(sd_bus_message_enter_container(message, 'e', "sv"), 0);
    ASSERT_GE(sd_bus_message_skip(message, "s"), 0);
    char type = 0;
    const char* contents = nullptr;
    ASSERT_GT(sd_bus_message_peek_type(message, &type, &contents), 0);
    EXPECT_EQ(type, 'v');
    EXPECT_EQ(contents, signature);
    sd_bus_message_unref(message);
  }
  PropertyDictionary nan = loopback.roundTrip({{"nan", std::nan("")}});
  ASSERT_NE(nan.at("nan").real(), nullptr);
  EXPECT_TRUE(std::isnan(*nan.at("nan").real()));
}

// What a D-Bus string cannot hold arrives as U+FFFD instead of failing the whole message.
TEST(DBusValuesTest, TextThatDBusStringsCannotHoldIsReplaced) {
  const std::pair<TextString, TextString> rows[] = {
      {u"caf\u00E9 \U0001F600", u"caf\u00E9 \U0001F600"},
      {TextString(u"a") + char16_t(0xD83D) + u"b", u"a\uFFFDb"},
      {TextString{char16_t(0xDE00), char16_t(0xD83D)}, u"\uFFFD\uFFFD"},
      {TextString(u"a\0b", 3), u"a\uFFFDb"},
      {u"a\uFFFFb", u"a\uFFFDb"},
      {u"x\U0001FFFF\U0010FFFE", u"x\uFFFD\uFFFD"},
      {u"\uFDCF\uFDD0\uFDEF\uFDF0", u"\uFDCF\uFFFD\uFFFD\uFDF0"},
  };
  Loopback loopback;
  for (const auto& [text, expected] : rows) {
    SCOPED_TRACE(toUtf8(expected));
    EXPECT_EQ(fromUtf8(wireString(TextView(text))), expected);
    EXPECT_EQ(loopback.roundTrip({{"text", text}}), (PropertyDictionary{{"text", expected}}));
  }
  PropertyDictionary keys = loopback.roundTrip({{std::string("bad \xFF\xFE", 6), 2}, {"", 3}});
  EXPECT_EQ(keys, (PropertyDictionary{{"bad \xEF\xBF\xBD\xEF\xBF\xBD", 2}, {"", 3}}));
  sd_bus_message* text =
      loopback.sealed([](auto* m) { return sd_bus_message_append(m, "s", "x"); });
  EXPECT_LT(readDictionary(text, keys), 0);
  sd_bus_message_unref(text);
}

}  // namespace
}  // namespace ulvek::dbus
