#include "protocol/transfer_values.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "protocol/dbus_interface.h"
#include "test_support.h"

namespace ulvek::dbus {
namespace {

// Writes a result as a Transfer answer into a message on an unconnected bus and reads it back.
ImportResult roundTrip(const ImportResult& result) {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  sd_bus* bus = nullptr;
  EXPECT_GE(sd_bus_new(&bus), 0);
  EXPECT_GE(sd_bus_set_fd(bus, ends[0], ends[0]), 0);
  EXPECT_GE(sd_bus_start(bus), 0);
  sd_bus_message* message = nullptr;
  sd_bus_message_new_method_call(bus, &message, "org.example", "/org/example", "org.example",
                                 "Echo");
  ImportResult back;
  EXPECT_GE(appendTransferResult(message, result), 0);
  EXPECT_GE(sd_bus_message_seal(message, 1, 0), 0);
  EXPECT_GE(sd_bus_message_rewind(message, true), 0);
  EXPECT_GE(readTransferResult(message, back), 0);
  sd_bus_message_unref(message);
  sd_bus_close_unref(bus);
  close(ends[1]);
  return back;
}

// Texts small enough for the message travel as in the classic answer; a cut is marked.
TEST(TransferValues, TextsInTheMessageAndTheCutMark) {
  struct Row {
    const char* name;
    std::size_t limit;
    PropertyDictionary expected;
  };
  const std::vector<Row> rows = {
      {"whole", 64, {{"Title", u"T"}, {"Text", u"0123456789"}}},
      {"cut", 4, {{"Title", u"T"}, {"Text", u"0123"}, {"TextTruncated", true}}},
  };
  for (const Row& row : rows) {
    ImportResult result;
    result.putOrRemove(ImportKey::Title, PropertyValue(u"T"));
    result.putOrRemove(ImportKey::Text, PropertyValue(u"0123456789"));
    testing::CapturedLog log;
    ScopedTextLimit limit(row.limit);
    result.limitSizes("/x");
    EXPECT_EQ(roundTrip(result).values(), row.expected) << row.name;
  }
}

}  // namespace
}  // namespace ulvek::dbus
