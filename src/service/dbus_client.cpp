#include "service/dbus_client.h"

#include <cerrno>
#include <cstring>
#include <thread>

#include "service/dbus_interface.h"
#include "service/dbus_values.h"

namespace ulvek {
namespace {

Error errorFrom(const sd_bus_error& busError, int r) {
  Error error;
  if (sd_bus_error_is_set(&busError)) {
    error.domain = busError.name;
    error.code = sd_bus_error_get_errno(&busError);
    error.localizedDescription = busError.message ? busError.message : "";
  } else {
    error.domain = SD_BUS_ERROR_FAILED;
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

// Unique pointer for messages.
struct MessageUnref {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageUnref>;

}  // namespace

bool isDBusError(const Error& error, std::string_view name) { return error.domain == name; }

std::unique_ptr<DBusClient> DBusClient::connect(ErrorOut error) {
  clearError(error);
  sd_bus* bus = nullptr;
  int r = sd_bus_open_user(&bus);
  if (r >= 0) r = sd_bus_set_method_call_timeout(bus, dbus::kCallTimeoutMicroseconds);
  if (r < 0) {
    sd_bus_unref(bus);
    setError(
        error,
        localError(SD_BUS_ERROR_NO_SERVER, -r,
                   std::string("Cannot connect to the session bus (DBUS_SESSION_BUS_ADDRESS): ") +
                       std::strerror(-r)));
    return nullptr;
  }
  return std::unique_ptr<DBusClient>(new DBusClient(bus));
}

DBusClient::~DBusClient() { sd_bus_flush_close_unref(bus_); }

sd_bus_message* DBusClient::newCall(std::string_view method, ErrorOut error) {
  sd_bus_message* call = nullptr;
  std::string member(method);
  int r = sd_bus_message_new_method_call(bus_, &call, dbus::kServiceName, dbus::kObjectPath,
                                         dbus::kInterfaceName, member.c_str());
  if (r < 0) {
    setError(error, errorFrom(SD_BUS_ERROR_NULL, r));
    return nullptr;
  }
  return call;
}

sd_bus_message* DBusClient::send(sd_bus_message* call, ErrorOut error) {
  Message owned(call);
  sd_bus_error busError = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  int r = sd_bus_call(bus_, call, dbus::kCallTimeoutMicroseconds, &busError, &reply);
  if (r < 0) setError(error, errorFrom(busError, r));
  sd_bus_error_free(&busError);
  return r < 0 ? nullptr : reply;
}

sd_bus_message* DBusClient::newPathCall(std::string_view method, const std::string& path,
                                        ErrorOut error) {
  // D-Bus strings must be UTF-8 without NUL; a path that is not cannot be named remotely.
  if (dbus::wireString(std::string_view(path)) != path) {
    setError(error, localError(SD_BUS_ERROR_INVALID_ARGS, EINVAL,
                               "The path is not valid UTF-8 and cannot be sent over D-Bus"));
    return nullptr;
  }
  sd_bus_message* call = newCall(method, error);
  if (!call) return nullptr;
  if (int r = sd_bus_message_append_basic(call, 's', path.c_str()); r < 0) {
    sd_bus_message_unref(call);
    setError(error, errorFrom(SD_BUS_ERROR_NULL, r));
    return nullptr;
  }
  return call;
}

bool DBusClient::ping(ErrorOut error) { return callWithoutArguments("Ping", error); }

bool DBusClient::callWithoutArguments(std::string_view method, ErrorOut error) {
  clearError(error);
  sd_bus_message* call = newCall(method, error);
  if (!call) return false;
  Message reply(send(call, error));
  return reply != nullptr;
}

bool DBusClient::terminate(ErrorOut error) {
  std::optional<Error> callError;
  if (callWithoutArguments("Terminate", &callError)) {
    setError(error, localError(SD_BUS_ERROR_FAILED, EPROTO, "The service answered Terminate"));
    return false;
  }
  // The bus answers for a service that quit without replying.
  if (isDBusError(*callError, SD_BUS_ERROR_NO_REPLY)) {
    clearError(error);
    return true;
  }
  setError(error, std::move(*callError));
  return false;
}

std::optional<ImportResult> DBusClient::callWithPath(std::string_view method,
                                                     const std::string& path, ErrorOut error) {
  clearError(error);
  sd_bus_message* call = newPathCall(method, path, error);
  if (!call) return std::nullopt;
  Message reply(send(call, error));
  if (!reply) return std::nullopt;
  ImportResult result;
  if (int r = dbus::readResult(reply.get(), result); r < 0) {
    setError(error, localError(SD_BUS_ERROR_INVALID_SIGNATURE, -r,
                               "The service answered something other than a result"));
    return std::nullopt;
  }
  return result;
}

std::optional<bool> DBusClient::askWithPath(std::string_view method, const std::string& path,
                                            ErrorOut error) {
  clearError(error);
  sd_bus_message* call = newPathCall(method, path, error);
  if (!call) return std::nullopt;
  Message reply(send(call, error));
  if (!reply) return std::nullopt;
  int answer = 0;
  if (int r = sd_bus_message_read_basic(reply.get(), 'b', &answer); r <= 0) {
    setError(error, localError(SD_BUS_ERROR_INVALID_SIGNATURE, EBADMSG,
                               "The service answered something other than a Boolean"));
    return std::nullopt;
  }
  return answer != 0;
}

std::optional<ImportResult> DBusClient::openFile(const std::string& path, ErrorOut error) {
  return callWithPath("OpenFile", path, error);
}
std::optional<ImportResult> DBusClient::openDirectory(const std::string& path, ErrorOut error) {
  return callWithPath("OpenDirectory", path, error);
}
std::optional<ImportResult> DBusClient::openAttributes(const std::string& path, ErrorOut error) {
  return callWithPath("OpenAttributes", path, error);
}
std::optional<bool> DBusClient::supportsFile(const std::string& path, ErrorOut error) {
  return askWithPath("SupportsFile", path, error);
}
std::optional<bool> DBusClient::isPlainFile(const std::string& path, ErrorOut error) {
  return askWithPath("IsPlainFile", path, error);
}

std::optional<ImportResult> DBusClient::openData(const std::optional<Data>& data,
                                                 const std::optional<TextString>& url,
                                                 const std::optional<TextString>& mimeType,
                                                 ErrorOut error) {
  clearError(error);
  sd_bus_message* call = newCall("OpenData", error);
  if (!call) return std::nullopt;
  static const Data kNoData;
  const Data& bytes = data ? *data : kNoData;
  std::string urlText = url ? dbus::wireString(TextView(*url)) : std::string();
  std::string mimeText = mimeType ? dbus::wireString(TextView(*mimeType)) : std::string();
  int r = sd_bus_message_append_array(call, 'y', bytes.data(), bytes.size());
  if (r >= 0) r = sd_bus_message_append(call, "ss", urlText.c_str(), mimeText.c_str());
  if (r < 0) {
    sd_bus_message_unref(call);
    setError(error, errorFrom(SD_BUS_ERROR_NULL, r));
    return std::nullopt;
  }
  Message reply(send(call, error));
  if (!reply) return std::nullopt;
  ImportResult result;
  if (r = dbus::readResult(reply.get(), result); r < 0) {
    setError(error, localError(SD_BUS_ERROR_INVALID_SIGNATURE, -r,
                               "The service answered something other than a result"));
    return std::nullopt;
  }
  return result;
}

std::optional<std::string> DBusClient::introspect(ErrorOut error) {
  clearError(error);
  sd_bus_error busError = SD_BUS_ERROR_NULL;
  sd_bus_message* reply = nullptr;
  int r = sd_bus_call_method(bus_, dbus::kServiceName, dbus::kObjectPath,
                             "org.freedesktop.DBus.Introspectable", "Introspect", &busError, &reply,
                             nullptr);
  Message owned(reply);
  const char* xml = nullptr;
  if (r >= 0) r = sd_bus_message_read_basic(reply, 's', &xml);
  if (r < 0) setError(error, errorFrom(busError, r));
  sd_bus_error_free(&busError);
  if (r < 0 || !xml) return std::nullopt;
  return std::string(xml);
}

std::optional<std::string> DBusClient::serviceOwner() {
  sd_bus_message* reply = nullptr;
  int r = sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "GetNameOwner", nullptr, &reply, "s",
                             dbus::kServiceName);
  Message owned(reply);
  const char* owner = nullptr;
  if (r >= 0) r = sd_bus_message_read_basic(reply, 's', &owner);
  if (r < 0 || !owner) return std::nullopt;
  return std::string(owner);
}

bool DBusClient::waitForService(std::chrono::milliseconds timeout) {
  auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (serviceOwner()) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

}  // namespace ulvek
