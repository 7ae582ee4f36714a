#pragma once

// How the importer host and its worker process talk: each message is a 4-byte little-endian
// length and then a binary property list holding one dictionary.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "base/property_value.h"
#include "base/status.h"

namespace ulvek::worker {

// A message larger than this is garbage, not an answer (attributes of a big book are far less).
inline constexpr std::uint32_t kMaxMessageSize = 512u * 1024 * 1024;

// Requests ("operation") and their fields.
namespace Field {
inline constexpr std::string_view Operation = "operation";
inline constexpr std::string_view Executable = "executable";
inline constexpr std::string_view Factory = "factory";      // exported function name
inline constexpr std::string_view FactoryID = "factoryID";  // UUID string
inline constexpr std::string_view ContentType = "contentType";
inline constexpr std::string_view Path = "path";
inline constexpr std::string_view Import = "import";  // false: only create and ask
// When the host stops waiting: seconds of the system's monotonic clock, which both sides share.
inline constexpr std::string_view Deadline = "deadline";
// Seconds the host waits beyond its time limit for this call (OCR's budget), and the settings the
// importer may ask for (a dictionary of strings).
inline constexpr std::string_view ExtraTime = "extraTime";
inline constexpr std::string_view Settings = "settings";
inline constexpr std::string_view Outcome = "outcome";
inline constexpr std::string_view Attributes = "attributes";
inline constexpr std::string_view Read = "read";  // what the importer's import answered
inline constexpr std::string_view Message = "message";
}  // namespace Field

namespace Operation {
inline constexpr std::u16string_view Ping = u"ping";
inline constexpr std::u16string_view Preflight = u"preflight";
inline constexpr std::u16string_view Call = u"call";
}  // namespace Operation

// What a call came to, as the worker reports it.
namespace Outcome {
inline constexpr std::u16string_view Imported = u"imported";  // interface found (and import ran)
inline constexpr std::u16string_view NoInstance = u"noInstance";    // factory gave nothing
inline constexpr std::u16string_view NoInterface = u"noInterface";  // neither interface granted
inline constexpr std::u16string_view NotLoaded = u"notLoaded";      // dlopen or dlsym failed
inline constexpr std::u16string_view Loadable = u"loadable";        // preflight passed
}  // namespace Outcome

// Writes one message; false when the other side is gone.
bool writeMessage(int fd, const PropertyDictionary& message);

// Reads one message, waiting at most until `deadline` (none: for ever). Errors: ETIMEDOUT,
// EPIPE for a closed pipe, EBADMSG for bytes that are no message. A readable `gone` (the
// worker's pidfd) ends the wait with EPIPE once nothing is left to read: a descendant that
// still holds the pipe open must not keep the host waiting for a dead worker.
Result<PropertyDictionary> readMessage(
    int fd, std::optional<std::chrono::steady_clock::time_point> deadline = std::nullopt,
    int gone = -1);

// A message's string field, or nothing.
std::optional<TextString> stringField(const PropertyDictionary& message, std::string_view key);

}  // namespace ulvek::worker
