// Calendar.mdimporter: iCalendar files (.ics) read with libical. Each event, to-do and journal
// entry gives its summary, place, description and categories as text; organisers are the authors
// and attendees the recipients; categories are keywords. The title is the one entry's summary,
// or the calendar's name (X-WR-CALNAME) for several; the dates are the earliest creation
// (CREATED, else DTSTAMP) and the latest change (LAST-MODIFIED).

#include <libical/ical.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/ascii.h"
#include "importer_plugin.h"
#include "unique_strings.h"

namespace {

using ulvek::plugin::Attributes;
using ulvek::plugin::UniqueStrings;

// Calendars exported whole stay far below this; libical's tree of a larger file could outgrow
// the worker's memory.
constexpr std::uintmax_t kMaxCalendarBytes = 32ull * 1024 * 1024;
// Nobody nests calendar components deeper; hostile files nest thousands of levels.
constexpr int kMaxDepth = 16;
// libical's time grows faster than the length of a line: a property of megabytes (folded or not)
// would take it minutes. Longer ones are cut here, at a character's start.
constexpr std::size_t kMaxLine = 256 * 1024;

// `bytes` with every property (a line and the folded lines after it, which begin with a blank)
// cut to kMaxLine bytes.
std::string withBoundedLines(const std::string& bytes) {
  std::string kept;
  kept.reserve(bytes.size());
  std::size_t logical = 0;  // bytes of the property so far
  for (std::size_t at = 0; at < bytes.size();) {
    std::size_t end = bytes.find('\n', at);
    end = end == std::string::npos ? bytes.size() : end + 1;
    const bool folded = at > 0 && (bytes[at] == ' ' || bytes[at] == '\t');
    if (!folded) logical = 0;
    std::size_t length = end - at;
    if (logical + length > kMaxLine) {
      std::size_t cut = kMaxLine > logical ? kMaxLine - logical : 0;
      while (cut > 0 && (static_cast<unsigned char>(bytes[at + cut]) & 0xC0) == 0x80) --cut;
      kept.append(bytes, at, cut);
      if (cut > 0 || !folded) kept += '\n';
    } else {
      kept.append(bytes, at, length);
    }
    logical += length;
    at = end;
  }
  return kept;
}

struct ComponentDeleter {
  void operator()(icalcomponent* component) const { icalcomponent_free(component); }
};

// "mailto:ann@example.org" → "ann@example.org"; nothing for another kind of address.
std::string mailbox(const char* address) {
  std::string text = address ? address : "";
  if (ulvek::asciiLowercase(text.substr(0, 7)) != "mailto:") return {};
  return text.substr(7);
}

std::optional<double> secondsOf(icaltimetype time) {
  if (icaltime_is_null_time(time) || !icaltime_is_valid_time(time)) return std::nullopt;
  // A floating time (no zone) is read as UTC.
  const icaltimezone* zone = time.zone ? time.zone : icaltimezone_get_utc_timezone();
  return double(icaltime_as_timet_with_zone(time, zone));
}

struct Calendar {
  std::string name;  // X-WR-CALNAME
  std::vector<std::string> summaries;
  std::string text;
  UniqueStrings authors, authorAddresses, recipients, recipientAddresses, keywords;
  std::optional<double> created, modified;
  std::size_t entries = 0;

  void readEntry(icalcomponent* entry) {
    ++entries;
    std::vector<std::string> lines;
    auto text = [&](icalproperty_kind kind, const char* (*get)(const icalproperty*)) {
      for (icalproperty* property = icalcomponent_get_first_property(entry, kind); property;
           property = icalcomponent_get_next_property(entry, kind))
        if (const char* value = get(property); value && *value) lines.emplace_back(value);
    };
    text(ICAL_SUMMARY_PROPERTY, icalproperty_get_summary);
    if (!lines.empty()) summaries.push_back(lines.front());
    text(ICAL_LOCATION_PROPERTY, icalproperty_get_location);
    text(ICAL_DESCRIPTION_PROPERTY, icalproperty_get_description);
    text(ICAL_COMMENT_PROPERTY, icalproperty_get_comment);
    for (icalproperty* property = icalcomponent_get_first_property(entry, ICAL_CATEGORIES_PROPERTY);
         property; property = icalcomponent_get_next_property(entry, ICAL_CATEGORIES_PROPERTY))
      if (const char* value = icalproperty_get_categories(property); value && *value) {
        lines.emplace_back(value);
        keywords.add(value, ulvek::asciiLowercase(value));
      }
    people(entry, ICAL_ORGANIZER_PROPERTY, icalproperty_get_organizer, authors, authorAddresses);
    people(entry, ICAL_ATTENDEE_PROPERTY, icalproperty_get_attendee, recipients,
           recipientAddresses);
    std::optional<double> made;
    if (icalproperty* property = icalcomponent_get_first_property(entry, ICAL_CREATED_PROPERTY))
      made = secondsOf(icalproperty_get_created(property));
    if (icalproperty* property = icalcomponent_get_first_property(entry, ICAL_DTSTAMP_PROPERTY);
        !made && property)
      made = secondsOf(icalproperty_get_dtstamp(property));
    if (made) created = created ? std::min(*created, *made) : *made;
    if (icalproperty* property =
            icalcomponent_get_first_property(entry, ICAL_LASTMODIFIED_PROPERTY))
      if (std::optional<double> changed = secondsOf(icalproperty_get_lastmodified(property)))
        modified = modified ? std::max(*modified, *changed) : *changed;
    if (lines.empty()) return;
    if (!this->text.empty()) this->text += '\n';
    for (const std::string& line : lines) this->text += line + '\n';
  }

  static void people(icalcomponent* entry, icalproperty_kind kind,
                     const char* (*get)(const icalproperty*), UniqueStrings& names,
                     UniqueStrings& addresses) {
    for (icalproperty* property = icalcomponent_get_first_property(entry, kind); property;
         property = icalcomponent_get_next_property(entry, kind)) {
      std::string address = mailbox(get(property));
      icalparameter* cn = icalproperty_get_first_parameter(property, ICAL_CN_PARAMETER);
      const char* name = cn ? icalparameter_get_cn(cn) : nullptr;
      // Without a name the address stands for the person, unless someone named has it.
      if (name && *name)
        names.add(name);
      else if (!addresses.contains(ulvek::asciiLowercase(address)))
        names.add(address);
      addresses.add(address, ulvek::asciiLowercase(address));
    }
  }

  // Calendars, and the entries in them, without recursion.
  void read(icalcomponent* root) {
    std::vector<std::pair<icalcomponent*, int>> pending{{root, 0}};
    while (!pending.empty()) {
      auto [component, depth] = pending.back();
      pending.pop_back();
      if (depth > kMaxDepth) continue;
      const icalcomponent_kind kind = icalcomponent_isa(component);
      if (kind == ICAL_VEVENT_COMPONENT || kind == ICAL_VTODO_COMPONENT ||
          kind == ICAL_VJOURNAL_COMPONENT) {
        readEntry(component);
        continue;
      }
      if (kind == ICAL_VCALENDAR_COMPONENT && name.empty()) {
        for (icalproperty* property = icalcomponent_get_first_property(component, ICAL_X_PROPERTY);
             property; property = icalcomponent_get_next_property(component, ICAL_X_PROPERTY)) {
          const char* key = icalproperty_get_x_name(property);
          const char* value = icalproperty_get_x(property);
          if (key && value && std::string(key) == "X-WR-CALNAME") name = value;
        }
      }
      if (kind != ICAL_VCALENDAR_COMPONENT && kind != ICAL_XROOT_COMPONENT) continue;
      std::vector<icalcomponent*> children;
      for (icalcomponent* child = icalcomponent_get_first_component(component, ICAL_ANY_COMPONENT);
           child; child = icalcomponent_get_next_component(component, ICAL_ANY_COMPONENT))
        children.push_back(child);
      // In the file's order.
      for (auto child = children.rbegin(); child != children.rend(); ++child)
        pending.emplace_back(*child, depth + 1);
    }
  }
};

bool importCalendar(Attributes& out, const char*, const char* path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) return false;
  const std::streamoff size = file.tellg();
  if (size < 0 || std::uintmax_t(size) > kMaxCalendarBytes) {
    std::fprintf(stderr, "Skipped: %s (%lld MB)\n", path, static_cast<long long>(size >> 20));
    return false;
  }
  file.seekg(0);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  if (!file.read(bytes.data(), size)) return false;
  // libical aborts on its errors only when told to; damaged files are answered, not fatal.
  icalerror_set_errors_are_fatal(0);
  std::unique_ptr<icalcomponent, ComponentDeleter> root(
      icalparser_parse_string(withBoundedLines(bytes).c_str()));
  if (!root) return false;
  Calendar calendar;
  calendar.read(root.get());
  if (calendar.entries == 0 && calendar.name.empty()) return false;
  if (calendar.entries == 1 && !calendar.summaries.empty())
    out.string("kMDItemTitle", calendar.summaries.front());
  else if (!calendar.name.empty())
    out.string("kMDItemTitle", calendar.name);
  out.strings("kMDItemAuthors", calendar.authors.values());
  out.strings("kMDItemAuthorEmailAddresses", calendar.authorAddresses.values());
  out.strings("kMDItemRecipients", calendar.recipients.values());
  out.strings("kMDItemRecipientEmailAddresses", calendar.recipientAddresses.values());
  out.strings("kMDItemKeywords", calendar.keywords.values());
  if (calendar.created) out.date("kMDItemContentCreationDate", *calendar.created);
  if (calendar.modified) out.date("kMDItemContentModificationDate", *calendar.modified);
  out.string("kMDItemTextContent", calendar.text);
  return true;
}

}  // namespace

ULVEK_EXPORT_IMPORTER_FACTORY(UlvekCalendarImporterFactory, importCalendar)
