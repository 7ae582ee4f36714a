#include "client/connection_errors.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace ulvek {
namespace {

// The proxy answers NoReply only for a helper that left the bus during the call (it died); a
// helper still there at the deadline is a Timeout.
constexpr std::array<std::string_view, 2> kTimeouts = {SD_BUS_ERROR_TIMEOUT,
                                                       "org.freedesktop.DBus.Error.TimedOut"};
constexpr std::array<std::string_view, 7> kUnreachable = {
    SD_BUS_ERROR_NO_REPLY,     SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER,
    SD_BUS_ERROR_DISCONNECTED, SD_BUS_ERROR_NO_SERVER,       SD_BUS_ERROR_NO_NETWORK,
    SD_BUS_ERROR_IO_ERROR};

}  // namespace

bool isPortTimeoutException(const Error& error) {
  return std::find(kTimeouts.begin(), kTimeouts.end(), error.domain) != kTimeouts.end();
}

bool isPortException(const Error& error) {
  return isPortTimeoutException(error) ||
         std::find(kUnreachable.begin(), kUnreachable.end(), error.domain) != kUnreachable.end();
}

}  // namespace ulvek
