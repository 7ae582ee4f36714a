#pragma once

// The ulvekbot client library: import documents through the ulvekbotd64 service on the D-Bus
// session bus.
//
//   ulvekbot::Client client;  // the installed daemon, started by the bus or by the client
//   ulvekbot::Expected<ulvekbot::ImportResult> result = client.importFile("/home/me/report.pdf");
//   if (result)
//     if (const std::string* title = result->string("Title")) std::cout << *title << '\n';
//
// Every string is UTF-8. Link with `pkg-config --cflags --libs ulvekbot-client`; C programs use
// <ulvekbot/client_c.h>.

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#if defined(__GNUC__)
#define ULVEKBOT_CLIENT_API __attribute__((visibility("default")))
#else
#define ULVEKBOT_CLIENT_API
#endif

namespace ulvekbot {

using Date = std::chrono::system_clock::time_point;
using Bytes = std::vector<std::uint8_t>;
using StringList = std::vector<std::string>;
// One value of a result. Lists the service joins with line feeds (Tags, Author, e-mail
// addresses, ...) come as StringList.
using Value = std::variant<std::string, std::int64_t, double, bool, Date, Bytes, StringList>;

enum class ErrorCode {
  // A path or argument the call cannot send.
  InvalidArgument = 1,
  // No session bus, or no daemon could be found, started or reached.
  Unreachable,
  // The daemon was there but did not answer in time.
  Timeout,
  // The daemon left the bus during the call (it crashed or was stopped).
  HelperGone,
  // The daemon answered with an error of its own (a missing file, an unreadable document, ...).
  Failed,
};

struct Error {
  ErrorCode code = ErrorCode::Failed;
  // The D-Bus error name, or the service's error domain.
  std::string domain;
  std::string message;
};

// A value or the error that kept the call from making one.
template <typename T = std::monostate>
class Expected {
 public:
  Expected(T value) : storage_(std::in_place_index<0>, std::move(value)) {}
  Expected(Error error) : storage_(std::in_place_index<1>, std::move(error)) {}

  bool ok() const { return storage_.index() == 0; }
  explicit operator bool() const { return ok(); }
  // Throws std::bad_variant_access on an error.
  const T& value() const& { return std::get<0>(storage_); }
  T& value() & { return std::get<0>(storage_); }
  T&& value() && { return std::get<0>(std::move(storage_)); }
  const T* operator->() const { return &value(); }
  T* operator->() { return &value(); }
  const T& operator*() const& { return value(); }
  const Error& error() const { return std::get<1>(storage_); }

 private:
  std::variant<T, Error> storage_;
};

// What an import answers, keyed by the result's names ("Title", "Text", "Author", "FileSize",
// "Creation", ...). A key is absent or holds a value.
class ImportResult {
 public:
  using Values = std::map<std::string, Value, std::less<>>;

  ImportResult() = default;
  explicit ImportResult(Values values) : values_(std::move(values)) {}

  const Values& values() const { return values_; }
  bool empty() const { return values_.empty(); }
  std::size_t size() const { return values_.size(); }
  bool contains(std::string_view key) const { return values_.find(key) != values_.end(); }

  const Value* get(std::string_view key) const {
    auto found = values_.find(key);
    return found == values_.end() ? nullptr : &found->second;
  }
  // Null when the key is absent or holds another kind of value.
  template <typename T>
  const T* get(std::string_view key) const {
    const Value* value = get(key);
    return value ? std::get_if<T>(value) : nullptr;
  }
  const std::string* string(std::string_view key) const { return get<std::string>(key); }

 private:
  Values values_;
};

struct ClientOptions {
  // The daemon to start where none runs; empty: the installed ulvekbotd64. With an empty path
  // the bus is first asked to start the daemon from its service file; with a path it is not,
  // since the bus may start another installation.
  std::string helperPath;
  // The name the daemon registers on the bus.
  std::string helperName = "ulvekbotd64";
  // How long one call may wait for its answer.
  std::chrono::duration<double> timeout = std::chrono::seconds(15);
};

// A connection to the service. A daemon the client started is stopped when the client goes; a
// daemon it found running is left alone. A client is used by one thread at a time (bus
// connections belong to the thread that made them).
class ULVEKBOT_CLIENT_API Client {
 public:
  Client();
  explicit Client(ClientOptions options);
  ~Client();
  Client(Client&&) noexcept;
  Client& operator=(Client&&) noexcept;
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Expected<> ping();
  // Files and folders by absolute path (the daemon runs elsewhere).
  Expected<ImportResult> importFile(std::string_view path);
  Expected<ImportResult> importDirectory(std::string_view path);
  // Only what extended attributes hold: tags, where-from address, comment.
  Expected<ImportResult> importAttributes(std::string_view path);
  // Downloaded data with the address it came from and its MIME type; either may be empty.
  Expected<ImportResult> importData(const Bytes& data, std::string_view url = {},
                                    std::string_view mimeType = {});
  Expected<bool> supportsFile(std::string_view path);
  Expected<bool> isPlainFile(std::string_view path);
  // Asks the daemon to leave once it has answered what it took before.
  Expected<> terminate();

  // Where the installed daemon is.
  static std::string defaultHelperPath();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace ulvekbot
