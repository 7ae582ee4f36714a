#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "client/helper_proxy.h"

// Each thread keeps its own connections to helpers, by registered name: a thread never uses a
// connection another thread made (sd-bus connections belong to one thread). Only valid
// connections are kept. The main thread's cache can be cleared from any thread.
namespace ulvek::thread_connections {

// The cached connection if it is still valid; an invalid one is removed and nothing answered.
std::shared_ptr<Connection> connectionRegisteredWithName(std::string_view name);
// Caches a valid connection under the name, or removes the name's entry.
void setConnection(const std::shared_ptr<Connection>& connection, std::string_view name);
void removeConnectionRegisteredWithName(std::string_view name);
// Removes the name from the main thread's cache and from the calling thread's.
void invalidateConnectionsRegisteredWithName(std::string_view name);

// The root object of the named helper, through this thread's cached connection or a fresh lookup.
// A positive time-out becomes the connection's call time-out; the protocol names the interface.
std::optional<HelperProxy> rootProxyForConnectionWithRegisteredName(std::string_view name,
                                                                    double timeout = 0,
                                                                    std::string_view protocol = {});
// Tries every 0.01 seconds, the first time after the first pause, until a proxy comes or the
// interval has passed; a non-positive interval answers nothing at once.
std::optional<HelperProxy> waitForTimeInterval(double interval, std::string_view name,
                                               double timeout = 0, std::string_view protocol = {});
// The same for 5.0 seconds.
std::optional<HelperProxy> waitForRootProxyForConnectionWithRegisteredName(
    std::string_view name, double timeout = 0, std::string_view protocol = {});

}  // namespace ulvek::thread_connections
