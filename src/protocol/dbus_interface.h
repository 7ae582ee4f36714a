#pragma once

#include <array>
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

// Request and reply time-out of every call on the connection.
inline constexpr std::uint64_t kCallTimeoutMicroseconds = 15'000'000;

}  // namespace ulvek::dbus
