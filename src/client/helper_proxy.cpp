#include "client/helper_proxy.h"

#include <systemd/sd-bus.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

#include "protocol/dbus_interface.h"
#include "protocol/dbus_values.h"
#include "protocol/sealed_memfd.h"
#include "protocol/transfer_values.h"

namespace ulvek {
namespace {

constexpr std::string_view kDefaultNamespace = "com.ulvek_technologies.";

Error errorFrom(const sd_bus_error& busError, int r) {
  Error error;
  if (sd_bus_error_is_set(&busError)) {
    error.domain = busError.name;
    error.code = sd_bus_error_get_errno(&busError);
    error.localizedDescription = busError.message ? busError.message : "";
  } else {
    // Local failures carry only errno; name the ones callers tell apart.
    error.domain = r == -ETIMEDOUT                      ? SD_BUS_ERROR_TIMEOUT
                   : r == -ENOTCONN || r == -ECONNRESET ? SD_BUS_ERROR_DISCONNECTED
                                                        : SD_BUS_ERROR_FAILED;
    error.code = -r;
    error.localizedDescription = std::strerror(-r);
  }
  return error;
}

Error localError(const char* name, int code, std::string message) {
  Error error;
  error.domain = name;
  error.code = code;
  error.localizedDescription = std::move(message);
  return error;
}

struct MessageUnref {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

struct BusUnref {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusUnref>;

std::optional<std::string> ownerOf(sd_bus* bus, const std::string& busName) {
  sd_bus_message* reply = nullptr;
  int r = sd_bus_call_method(bus, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "GetNameOwner", nullptr, &reply, "s",
                             busName.c_str());
  Message owned(reply);
  const char* owner = nullptr;
  if (r >= 0) r = sd_bus_message_read_basic(reply, 's', &owner);
  if (r < 0 || !owner) return std::nullopt;
  return std::string(owner);
}

// Looking a name up every 0.01 seconds must not open a bus connection each time: a thread keeps
// one spare connection for lookups and hands it to the first Connection that finds its name.
Bus& spareBus() {
  thread_local Bus bus;
  return bus;
}

// Builds a call to the root object; the path must be sendable.
Result<Message> newCall(Connection& connection, const std::string& protocol,
                        std::string_view method) {
  sd_bus_message* call = nullptr;
  std::string member(method);
  int r = sd_bus_message_new_method_call(
      connection.bus(), &call, connection.busName().c_str(), connection.objectPath().c_str(),
      protocol.empty() ? nullptr : protocol.c_str(), member.c_str());
  if (r < 0) return errorFrom(SD_BUS_ERROR_NULL, r);
  return Message(call);
}

bool isMissingReply(const Error& error) {
  return error.domain == SD_BUS_ERROR_NO_REPLY || error.domain == SD_BUS_ERROR_TIMEOUT ||
         error.domain == "org.freedesktop.DBus.Error.TimedOut";
}

// The bus answers NoReply both for a helper that left the bus during the call and, where it has
// a reply time-out of its own, for a slow one; sd-bus answers a time-out of its own. A helper
// that left has no answer coming before the deadline and no longer owns the name: that is
// NoReply, everything else a Timeout.
void blameMissingReply(Connection& connection, Error& error,
                       std::chrono::steady_clock::duration elapsed) {
  if (!isMissingReply(error)) return;
  std::string owner = connection.knownOwner();
  std::optional<std::string> now = connection.nameOwner();
  auto deadline = std::chrono::duration<double>(connection.requestTimeout() * 0.9);
  if (elapsed < deadline && (!now || *now != owner)) {
    error.domain = SD_BUS_ERROR_NO_REPLY;
    error.code = ECONNRESET;
    error.localizedDescription = "The helper ended during the call (" +
                                 (error.localizedDescription.empty() ? std::string("no reply")
                                                                     : error.localizedDescription) +
                                 ")";
  } else {
    error.domain = SD_BUS_ERROR_TIMEOUT;
    error.code = ETIMEDOUT;
  }
}

Result<Message> send(Connection& connection, Message call) {
  sd_bus_error busError = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  auto start = std::chrono::steady_clock::now();
  int r = sd_bus_call(connection.bus(), call.get(), 0, &busError, &reply);
  if (r < 0) {
    Error error = errorFrom(busError, r);
    sd_bus_error_free(&busError);
    blameMissingReply(connection, error, std::chrono::steady_clock::now() - start);
    return error;
  }
  return Message(reply);
}

// The helper that was called is not there (any more): a fresh one may answer.
bool helperIsGone(const Error& error) {
  return error.domain == SD_BUS_ERROR_NO_REPLY || error.domain == SD_BUS_ERROR_SERVICE_UNKNOWN ||
         error.domain == SD_BUS_ERROR_NAME_HAS_NO_OWNER;
}

const Error& errorOf(const Status& status) { return status.error(); }
template <typename T>
const Error& errorOf(const Result<T>& result) {
  return result.error();
}

// A path that a D-Bus string cannot hold (not UTF-8, or a character D-Bus refuses) goes as bytes
// through the Transfer interface; the classic interface keeps every other.
bool travelsAsBytes(const std::string& path) {
  return dbus::wireString(std::string_view(path)) != path;
}

Result<Message> newPathCall(Connection& connection, const std::string& protocol,
                            std::string_view method, const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    return localError(SD_BUS_ERROR_INVALID_ARGS, EINVAL, "A path cannot hold a NUL byte");
  }
  const bool asBytes = travelsAsBytes(path);
  Result<Message> call =
      newCall(connection, asBytes ? dbus::kTransferInterfaceName : protocol, method);
  if (!call) return call;
  int r = asBytes ? sd_bus_message_append_array(call->get(), 'y', path.data(), path.size())
                  : sd_bus_message_append_basic(call->get(), 's', path.c_str());
  if (r < 0) return errorFrom(SD_BUS_ERROR_NULL, r);
  return call;
}

Result<ImportResult> readResultReply(Result<Message> reply) {
  if (!reply) return reply.error();
  // A classic answer is a Transfer answer without a memory file or a cut mark.
  ImportResult result;
  if (int r = dbus::readTransferResult(reply->get(), result); r < 0) {
    return localError(SD_BUS_ERROR_INVALID_SIGNATURE, -r,
                      "The helper answered something other than a result");
  }
  return result;
}

Result<bool> readBooleanReply(Result<Message> reply) {
  if (!reply) return reply.error();
  int answer = 0;
  if (int r = sd_bus_message_read_basic(reply->get(), 'b', &answer); r <= 0) {
    return localError(SD_BUS_ERROR_INVALID_SIGNATURE, EBADMSG,
                      "The helper answered something other than a Boolean");
  }
  return answer != 0;
}

}  // namespace

std::string busNameForRegisteredName(std::string_view name) {
  if (name.find('.') != std::string_view::npos) return std::string(name);
  return std::string(kDefaultNamespace) + std::string(name);
}

std::string objectPathForBusName(std::string_view busName) {
  std::string path = "/";
  for (char c : busName) {
    if (c == '.')
      path += '/';
    else if (c == '-')
      path += '_';
    else
      path += c;
  }
  return path;
}

Status activateRegisteredName(std::string_view registeredName, double timeout) {
  sd_bus* opened = nullptr;
  if (int r = sd_bus_open_user(&opened); r < 0) return errorFrom(SD_BUS_ERROR_NULL, r);
  Bus bus(opened);
  if (timeout > 0) {
    sd_bus_set_method_call_timeout(
        bus.get(), static_cast<uint64_t>(std::llround(std::min(timeout, 1e6) * 1e6)));
  }
  std::string busName = busNameForRegisteredName(registeredName);
  sd_bus_error busError = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  int r = sd_bus_call_method(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "StartServiceByName", &busError, &reply, "su",
                             busName.c_str(), 0u);
  Message owned(reply);
  if (r < 0) {
    Error error = errorFrom(busError, r);
    sd_bus_error_free(&busError);
    return error;
  }
  return {};
}

Connection::Connection(sd_bus* bus, std::string busName, std::string owner)
    : bus_(bus),
      busName_(std::move(busName)),
      objectPath_(objectPathForBusName(busName_)),
      owner_(std::move(owner)) {}

Connection::~Connection() { sd_bus_flush_close_unref(bus_); }

std::shared_ptr<Connection> Connection::lookUp(std::string_view registeredName) {
  if (registeredName.empty()) return nullptr;
  Bus& spare = spareBus();
  if (spare && sd_bus_is_open(spare.get()) <= 0) spare.reset();
  if (!spare) {
    sd_bus* bus = nullptr;
    if (sd_bus_open_user(&bus) < 0) return nullptr;
    spare.reset(bus);
  }
  std::string busName = busNameForRegisteredName(registeredName);
  std::optional<std::string> owner = ownerOf(spare.get(), busName);
  if (!owner) return nullptr;
  return std::shared_ptr<Connection>(
      new Connection(spare.release(), std::move(busName), std::move(*owner)));
}

bool Connection::isValid() { return sd_bus_is_open(bus_) > 0 && nameOwner().has_value(); }

void Connection::setRequestTimeout(double seconds) {
  if (!(seconds > 0)) return;
  double micros = std::min(seconds * 1e6, 1e15);
  if (sd_bus_set_method_call_timeout(bus_, static_cast<uint64_t>(std::llround(micros))) >= 0)
    timeoutSeconds_ = seconds;
}

void Connection::setReplyTimeout(double seconds) { setRequestTimeout(seconds); }

HelperProxy Connection::rootProxy() { return HelperProxy(shared_from_this()); }

std::optional<std::string> Connection::nameOwner() {
  std::optional<std::string> owner = ownerOf(bus_, busName_);
  if (owner) owner_ = *owner;
  return owner;
}

HelperProxy::HelperProxy(std::shared_ptr<Connection> connection, std::string protocol)
    : connection_(std::move(connection)), protocol_(std::move(protocol)) {}

template <typename Answer>
Answer HelperProxy::retried(const std::function<Answer(HelperProxy&)>& attempt) {
  Answer answer = attempt(*this);
  if (answer.ok() || !helperIsGone(errorOf(answer))) return answer;
  std::shared_ptr<Relauncher> relauncher = relauncher_.lock();
  if (!relauncher || !*relauncher) return answer;
  std::optional<HelperProxy> fresh = (*relauncher)();
  if (!fresh) return answer;
  // Later calls of this proxy go to the fresh helper too.
  connection_ = fresh->connection_;
  return attempt(*this);
}

Status HelperProxy::call(std::string_view method) {
  return retried<Status>([&](HelperProxy& proxy) -> Status {
    Result<Message> call = newCall(*proxy.connection_, proxy.protocol_, method);
    if (!call) return call.error();
    return send(*proxy.connection_, std::move(*call)).status();
  });
}

Status HelperProxy::ping() { return call("Ping"); }

Status HelperProxy::terminate() {
  Result<Message> call = newCall(*connection_, protocol_, "Terminate");
  if (!call) return call.error();
  Status status = send(*connection_, std::move(*call)).status();
  if (status) {
    return localError(SD_BUS_ERROR_FAILED, EPROTO, "The helper answered Terminate");
  }
  // The bus answers for a helper that quit without replying.
  if (status.error().domain == SD_BUS_ERROR_NO_REPLY) return {};
  return status;
}

Result<ImportResult> HelperProxy::importPath(std::string_view method, const std::string& path) {
  return retried<Result<ImportResult>>([&](HelperProxy& proxy) -> Result<ImportResult> {
    Result<Message> call = newPathCall(*proxy.connection_, proxy.protocol_, method, path);
    if (!call) return call.error();
    return readResultReply(send(*proxy.connection_, std::move(*call)));
  });
}

Result<bool> HelperProxy::askPath(std::string_view method, const std::string& path) {
  return retried<Result<bool>>([&](HelperProxy& proxy) -> Result<bool> {
    Result<Message> call = newPathCall(*proxy.connection_, proxy.protocol_, method, path);
    if (!call) return call.error();
    return readBooleanReply(send(*proxy.connection_, std::move(*call)));
  });
}

Result<ImportResult> HelperProxy::openFile(const std::string& path) {
  return importPath("OpenFile", path);
}

Result<ImportResult> HelperProxy::openDirectory(const std::string& path) {
  return importPath("OpenDirectory", path);
}

Result<ImportResult> HelperProxy::openAttributes(const std::string& path) {
  return importPath("OpenAttributes", path);
}

Result<bool> HelperProxy::supportsFile(const std::string& path) {
  return askPath("SupportsFile", path);
}

Result<bool> HelperProxy::isPlainFile(const std::string& path) {
  return askPath("IsPlainFile", path);
}

Result<ImportResult> HelperProxy::openData(const std::optional<Data>& data,
                                           const std::optional<TextString>& url,
                                           const std::optional<TextString>& mimeType) {
  static const Data kNoData;
  const Data& bytes = data ? *data : kNoData;
  std::string urlText = url ? dbus::wireString(TextView(*url)) : std::string();
  std::string mimeText = mimeType ? dbus::wireString(TextView(*mimeType)) : std::string();
  // Large data goes as a sealed memory file: one copy instead of a message the bus may refuse.
  std::optional<OwnedDescriptor> file;
  if (bytes.size() > dbus::kInlineDataBytes) {
    Result<OwnedDescriptor> made = makeSealedMemfd(bytes, "ulvekbot-data");
    if (!made) return made.error();
    file = std::move(*made);
  }
  return retried<Result<ImportResult>>([&](HelperProxy& proxy) -> Result<ImportResult> {
    Connection& connection = *proxy.connection_;
    if (file && sd_bus_can_send(connection.bus(), 'h') <= 0) {
      return localError(SD_BUS_ERROR_NOT_SUPPORTED, ENOTSUP,
                        "The bus connection cannot pass file descriptors, which data over 32 MiB "
                        "needs");
    }
    Result<Message> call =
        newCall(connection, file ? dbus::kTransferInterfaceName : proxy.protocol_, "OpenData");
    if (!call) return call.error();
    int descriptor = file ? file->get() : -1;
    int r = file ? sd_bus_message_append_basic(call->get(), 'h', &descriptor)
                 : sd_bus_message_append_array(call->get(), 'y', bytes.data(), bytes.size());
    if (r >= 0) r = sd_bus_message_append(call->get(), "ss", urlText.c_str(), mimeText.c_str());
    if (r < 0) return errorFrom(SD_BUS_ERROR_NULL, r);
    return readResultReply(send(connection, std::move(*call)));
  });
}

Result<std::string> HelperProxy::introspect() {
  sd_bus_error busError = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  int r = sd_bus_call_method(
      connection_->bus(), connection_->busName().c_str(), connection_->objectPath().c_str(),
      "org.freedesktop.DBus.Introspectable", "Introspect", &busError, &reply, nullptr);
  Message owned(reply);
  const char* xml = nullptr;
  if (r >= 0) r = sd_bus_message_read_basic(reply, 's', &xml);
  if (r < 0 || !xml) {
    Error error = errorFrom(busError, r < 0 ? r : -EBADMSG);
    sd_bus_error_free(&busError);
    return error;
  }
  return std::string(xml);
}

bool HelperProxy::respondsToSelector(std::string_view method) {
  Result<std::string> xml = introspect();
  if (!xml) return false;
  std::string needle = "<method name=\"" + std::string(method) + "\"";
  std::size_t at = xml->find(needle);
  if (at == std::string::npos) return false;
  if (protocol_.empty()) return true;
  // With a protocol, the method must belong to that interface.
  std::size_t interface = xml->rfind("<interface name=\"", at);
  return interface != std::string::npos &&
         xml->compare(interface + 17, protocol_.size() + 1, protocol_ + "\"") == 0;
}

Result<bool> HelperProxy::stillBusy() {
  Result<Message> call = newCall(*connection_, protocol_, "StillBusy");
  if (!call) return call.error();
  return readBooleanReply(send(*connection_, std::move(*call)));
}

}  // namespace ulvek
