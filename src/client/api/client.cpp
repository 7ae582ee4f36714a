// The public C++ client over the internal one: internal values (UTF-16 text, microsecond dates,
// Error records) become the public types here, and nowhere else.
#include <ulvekbot/client.h>

#include <systemd/sd-bus.h>

#include <algorithm>
#include <optional>

#include "base/text_string.h"
#include "client/connection_errors.h"
#include "client/helper_task.h"
#include "protocol/dbus_interface.h"
#include "protocol/import_result.h"

namespace ulvekbot {
namespace {

std::optional<Value> publicValue(const ulvek::PropertyValue& value);

StringList splitLines(const std::string& joined) {
  StringList items;
  std::size_t start = 0;
  while (start <= joined.size()) {
    std::size_t end = std::min(joined.find('\n', start), joined.size());
    items.push_back(joined.substr(start, end - start));
    start = end + 1;
  }
  return items;
}

std::optional<Value> publicValue(const ulvek::PropertyValue& value) {
  using Kind = ulvek::PropertyValue::Kind;
  switch (value.kind()) {
    case Kind::String:
      return ulvek::toUtf8(*value.string());
    case Kind::Integer:
      return *value.integer();
    case Kind::Unsigned: {
      std::uint64_t number = *value.unsignedInteger();
      if (number <= static_cast<std::uint64_t>(INT64_MAX)) return static_cast<std::int64_t>(number);
      return static_cast<double>(number);
    }
    case Kind::Real:
      return *value.real();
    case Kind::Boolean:
      return *value.boolean();
    case Kind::Date:
      return Date(std::chrono::duration_cast<Date::duration>(
          std::chrono::microseconds(value.date()->microseconds)));
    case Kind::Data:
      return Bytes(value.data()->begin(), value.data()->end());
    case Kind::Array: {
      // The result's lists hold strings only.
      StringList items;
      for (const ulvek::PropertyValue& item : *value.array())
        if (const ulvek::TextString* text = item.string()) items.push_back(ulvek::toUtf8(*text));
      return items;
    }
    case Kind::Dictionary:
      break;
  }
  return std::nullopt;
}

ImportResult publicResult(const ulvek::ImportResult& result) {
  ImportResult::Values values;
  for (const auto& [key, value] : result.values()) {
    std::optional<Value> converted = publicValue(value);
    if (!converted) continue;
    bool joined =
        std::find(ulvek::ImportKey::JoinedLists.begin(), ulvek::ImportKey::JoinedLists.end(),
                  key) != ulvek::ImportKey::JoinedLists.end();
    if (joined)
      if (const std::string* text = std::get_if<std::string>(&*converted))
        converted = splitLines(*text);
    values.emplace(key, std::move(*converted));
  }
  return ImportResult(std::move(values));
}

Error publicError(const ulvek::Error& error) {
  ErrorCode code = ErrorCode::Failed;
  if (ulvek::isPortTimeoutException(error))
    code = ErrorCode::Timeout;
  else if (error.domain == SD_BUS_ERROR_NO_REPLY)
    code = ErrorCode::HelperGone;
  else if (ulvek::isPortException(error))
    code = ErrorCode::Unreachable;
  return Error{code, error.domain, error.localizedDescription};
}

template <typename T>
Expected<ImportResult> imported(const ulvek::Result<T>& result) {
  if (!result.ok()) return publicError(result.error());
  return publicResult(*result);
}

}  // namespace

struct Client::Impl {
  ClientOptions options;
  std::unique_ptr<ulvek::HelperTask> task;

  // The running daemon's proxy, or (when `start`) one started for the call.
  Expected<ulvek::HelperProxy> proxy(bool start = true) {
    if (!task) {
      std::string path =
          options.helperPath.empty() ? Client::defaultHelperPath() : options.helperPath;
      task =
          ulvek::HelperTask::initWithPath(path, options.helperName, ulvek::dbus::kInterfaceName,
                                          options.timeout.count(), ulvek::kQualityOfServiceUtility);
      if (!task) return Error{ErrorCode::InvalidArgument, {}, "no helper path or name: " + path};
      task->setUsesActivation(options.helperPath.empty());
    }
    std::optional<ulvek::HelperProxy> proxy = start ? task->proxy() : task->launchedProxy();
    if (!proxy)
      return Error{ErrorCode::Unreachable,
                   {},
                   "cannot reach or start " + options.helperName + " on the session bus"};
    return *proxy;
  }
};

Client::Client() : Client(ClientOptions{}) {}
Client::Client(ClientOptions options) : impl_(std::make_unique<Impl>()) {
  impl_->options = std::move(options);
}
Client::~Client() = default;
Client::Client(Client&&) noexcept = default;
Client& Client::operator=(Client&&) noexcept = default;

std::string Client::defaultHelperPath() { return ULVEK_DAEMON_PATH; }

Expected<> Client::ping() {
  Expected<ulvek::HelperProxy> proxy = impl_->proxy();
  if (!proxy) return proxy.error();
  ulvek::Status status = proxy.value().ping();
  if (!status) return publicError(status.error());
  return std::monostate{};
}

Expected<ImportResult> Client::importFile(std::string_view path) {
  Expected<ulvek::HelperProxy> proxy = impl_->proxy();
  if (!proxy) return proxy.error();
  return imported(proxy.value().openFile(std::string(path)));
}

Expected<ImportResult> Client::importDirectory(std::string_view path) {
  Expected<ulvek::HelperProxy> proxy = impl_->proxy();
  if (!proxy) return proxy.error();
  return imported(proxy.value().openDirectory(std::string(path)));
}

Expected<ImportResult> Client::importAttributes(std::string_view path) {
  Expected<ulvek::HelperProxy> proxy = impl_->proxy();
  if (!proxy) return proxy.error();
  return imported(proxy.value().openAttributes(std::string(path)));
}

Expected<ImportResult> Client::importData(const Bytes& data, std::string_view url,
                                          std::string_view mimeType) {
  Expected<ulvek::HelperProxy> proxy = impl_->proxy();
  if (!proxy) return proxy.error();
  auto text = [](std::string_view utf8) -> std::optional<ulvek::TextString> {
    if (utf8.empty()) return std::nullopt;
    return ulvek::fromUtf8(utf8);
  };
  return imported(
      proxy.value().openData(ulvek::Data(data.begin(), data.end()), text(url), text(mimeType)));
}

namespace {

// A yes-or-no question the daemon answers about a path.
Expected<bool> answered(Expected<ulvek::HelperProxy> proxy,
                        ulvek::Result<bool> (ulvek::HelperProxy::*question)(const std::string&),
                        std::string_view path) {
  if (!proxy) return proxy.error();
  ulvek::Result<bool> answer = (proxy.value().*question)(std::string(path));
  if (!answer) return publicError(answer.error());
  return *answer;
}

}  // namespace

Expected<bool> Client::supportsFile(std::string_view path) {
  return answered(impl_->proxy(), &ulvek::HelperProxy::supportsFile, path);
}

Expected<bool> Client::isPlainFile(std::string_view path) {
  return answered(impl_->proxy(), &ulvek::HelperProxy::isPlainFile, path);
}

Expected<> Client::terminate() {
  // A daemon that does not run is not started to be stopped.
  Expected<ulvek::HelperProxy> proxy = impl_->proxy(false);
  if (!proxy)
    return proxy.error().code == ErrorCode::Unreachable ? Expected<>(std::monostate{})
                                                        : proxy.error();
  ulvek::Status status = proxy.value().terminate();
  // The daemon is gone: the next call starts or finds a new one.
  impl_->task->invalidate();
  if (!status) return publicError(status.error());
  return std::monostate{};
}

}  // namespace ulvekbot
