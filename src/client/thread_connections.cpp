#include "client/thread_connections.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <mutex>
#include <thread>

namespace ulvek::thread_connections {
namespace {

struct Cache {
  std::mutex mutex;
  std::map<std::string, std::shared_ptr<Connection>, std::less<>> entries;
};

bool isMainThread() { return static_cast<pid_t>(syscall(SYS_gettid)) == getpid(); }

// The main thread's cache is shared so other threads can clear its entries.
Cache& mainCache() {
  static Cache cache;
  return cache;
}

Cache& currentCache() {
  if (isMainThread()) return mainCache();
  thread_local Cache cache;
  return cache;
}

void removeFrom(Cache& cache, std::string_view name) {
  std::lock_guard lock(cache.mutex);
  if (auto it = cache.entries.find(name); it != cache.entries.end()) cache.entries.erase(it);
}

}  // namespace

std::shared_ptr<Connection> connectionRegisteredWithName(std::string_view name) {
  if (name.empty()) return nullptr;
  Cache& cache = currentCache();
  std::shared_ptr<Connection> connection;
  {
    std::lock_guard lock(cache.mutex);
    auto it = cache.entries.find(name);
    if (it == cache.entries.end()) return nullptr;
    connection = it->second;
  }
  // Asking the bus happens outside the lock.
  if (connection->isValid()) return connection;
  removeFrom(cache, name);
  return nullptr;
}

void setConnection(const std::shared_ptr<Connection>& connection, std::string_view name) {
  if (name.empty()) return;
  Cache& cache = currentCache();
  if (!connection || !connection->isValid()) {
    removeFrom(cache, name);
    return;
  }
  std::lock_guard lock(cache.mutex);
  cache.entries.insert_or_assign(std::string(name), connection);
}

void removeConnectionRegisteredWithName(std::string_view name) {
  if (name.empty()) return;
  removeFrom(currentCache(), name);
}

void invalidateConnectionsRegisteredWithName(std::string_view name) {
  removeFrom(mainCache(), name);
  if (!isMainThread()) removeFrom(currentCache(), name);
}

std::optional<HelperProxy> rootProxyForConnectionWithRegisteredName(std::string_view name,
                                                                    double timeout,
                                                                    std::string_view protocol) {
  if (std::shared_ptr<Connection> cached = connectionRegisteredWithName(name)) {
    if (timeout > 0) {
      cached->setRequestTimeout(timeout);
      cached->setReplyTimeout(timeout);
    }
    HelperProxy proxy = cached->rootProxy();
    proxy.setProtocolForProxy(protocol);
    return proxy;
  }
  std::shared_ptr<Connection> connection = Connection::lookUp(name);
  if (!connection) return std::nullopt;
  setConnection(connection, name);
  HelperProxy proxy = connection->rootProxy();
  if (!protocol.empty()) proxy.setProtocolForProxy(protocol);
  if (timeout > 0) {
    connection->setRequestTimeout(timeout);
    connection->setReplyTimeout(timeout);
  }
  return proxy;
}

std::optional<HelperProxy> waitForTimeInterval(double interval, std::string_view name,
                                               double timeout, std::string_view protocol) {
  if (!(interval > 0)) return std::nullopt;
  constexpr double kStep = 0.01;
  double elapsed = 0;
  do {
    std::this_thread::sleep_for(std::chrono::duration<double>(kStep));
    if (auto proxy = rootProxyForConnectionWithRegisteredName(name, timeout, protocol))
      return proxy;
    elapsed += kStep;
  } while (interval > elapsed);
  return std::nullopt;
}

std::optional<HelperProxy> waitForRootProxyForConnectionWithRegisteredName(
    std::string_view name, double timeout, std::string_view protocol) {
  return waitForTimeInterval(5.0, name, timeout, protocol);
}

}  // namespace ulvek::thread_connections
