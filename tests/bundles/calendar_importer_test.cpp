// Calendar.mdimporter over the project's own calendars (tests/data/calendar) against the answers
// written beside them, and over hostile calendars, which must be answered quickly with little.

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "bundle_harness.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::Bundle;
using testing::BundleAttributes;
using testing::words;

// An invitation (escapes, folded lines, people, categories) and a whole calendar (its name,
// several kinds of entry, people and categories met twice, the dates of all entries).
TEST(CalendarImporter, FixturesGiveTheirAttributes) {
  Bundle bundle("Calendar", "UlvekCalendarImporterFactory");
  testing::expectFixtures(bundle, "calendar", {".ics"}, 2, 0, words);
}

// Nothing to read answers nothing; what libical cannot parse quickly is cut before it parses.
TEST(CalendarImporter, HostileCalendarsAnswerLittle) {
  Bundle bundle("Calendar", "UlvekCalendarImporterFactory");
  testing::TemporaryFolder folder;
  auto repeated = [](const std::string& piece, std::size_t times) {
    std::string out;
    for (std::size_t i = 0; i < times; ++i) out += piece;
    return out;
  };
  const std::string event = "BEGIN:VEVENT\nSUMMARY:deep\nEND:VEVENT\n";
  struct Row {
    const char* name;
    std::string bytes;
    std::string title;  // "(none)" where no title may be answered
  };
  const Row rows[] = {
      {"empty", "", "(none)"},
      {"no calendar", "Subject: not a calendar\n", "(none)"},
      {"cut short", "BEGIN:VCALENDAR\nBEGIN:VEVENT\nSUMMARY:half\n", "(none)"},
      {"nested past any writer",
       repeated("BEGIN:VCALENDAR\n", 50000) + event + repeated("END:VCALENDAR\n", 50000), "(none)"},
      {"a summary of megabytes",
       "BEGIN:VCALENDAR\nBEGIN:VEVENT\nSUMMARY:" + std::string(5 << 20, 'x') +
           "\nEND:VEVENT\nEND:VCALENDAR\n",
       std::string(256 * 1024 - std::string("SUMMARY:").size(), 'x')},
      {"a description folded over a hundred thousand lines",
       "BEGIN:VCALENDAR\nBEGIN:VEVENT\nSUMMARY:folded\nDESCRIPTION:" +
           repeated(std::string(70, 'y') + "\n ", 100000) + "\nEND:VEVENT\nEND:VCALENDAR\n",
       "folded"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto start = std::chrono::steady_clock::now();
    BundleAttributes values = bundle.import(folder.write("calendar.ics", row.bytes));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    const std::string title = testing::stringOf(values, "kMDItemTitle");
    EXPECT_EQ(title.size(), row.title.size());
    EXPECT_EQ(title.substr(0, 40), row.title.substr(0, 40));
  }
}

}  // namespace
}  // namespace ulvek
