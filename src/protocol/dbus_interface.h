#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

// Where the service lives on the session bus, shared by the daemon and its clients.
namespace ulvek::dbus {

inline constexpr const char* kServiceName = "com.ulvek_technologies.ulvekbotd64";
inline constexpr const char* kObjectPath = "/com/ulvek_technologies/ulvekbotd64";
inline constexpr const char* kInterfaceName = "com.ulvek_technologies.UlvekBotHelper";

// The remote operations, in declaration order.
inline constexpr std::array<std::string_view, 8> kMethodNames = {
    "Terminate", "Ping",           "OpenData",     "OpenDirectory",
    "OpenFile",  "OpenAttributes", "SupportsFile", "IsPlainFile"};

// A second interface on the same object, beside the classic one: data as a sealed memory file
// (`h`), paths as bytes (`ay`, for names that are not UTF-8), and texts too large for a message
// answered as a sealed memory file.
inline constexpr const char* kTransferInterfaceName =
    "com.ulvek_technologies.UlvekBotHelper.Transfer";
inline constexpr std::array<std::string_view, 6> kTransferMethodNames = {
    "OpenData", "OpenDirectory", "OpenFile", "OpenAttributes", "SupportsFile", "IsPlainFile"};

// Keys a Transfer answer adds to the result. "TextFile" (`h`) stands for "Text": a sealed memory
// file holding the text as UTF-8, sent when the text is over kInlineTextBytes. "TextTruncated"
// (`b`, true) says the text was cut at kTransferTextBytes; it is absent otherwise.
inline constexpr std::string_view kTextFileKey = "TextFile";
inline constexpr std::string_view kTextTruncatedKey = "TextTruncated";

// Texts up to this size travel in the message; larger ones as "TextFile". The metadata beside
// them is cut to 16 MiB, so an answer never nears the bus's 128 MiB message limit.
inline constexpr std::size_t kInlineTextBytes = 32u * 1024 * 1024;
// The most text a Transfer answer carries, in UTF-8 bytes.
inline constexpr std::size_t kTransferTextBytes = 512u * 1024 * 1024;
// Clients send data over this size as a sealed memory file through the Transfer interface.
inline constexpr std::size_t kInlineDataBytes = 32u * 1024 * 1024;

// Request and reply time-out of every call on the connection.
inline constexpr std::uint64_t kCallTimeoutMicroseconds = 15'000'000;

}  // namespace ulvek::dbus
