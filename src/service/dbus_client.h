#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <systemd/sd-bus.h>

#include "base/error.h"
#include "base/property_value.h"
#include "import/import_result.h"

namespace ulvek {

// A connection to the running service on the session bus. Every call waits at most 15 seconds.
// A failed call answers nothing (or false) and sets an Error whose domain is the D-Bus error name
// ("org.freedesktop.DBus.Error.NotSupported", ".ServiceUnknown", ".NoReply", ...), whose code is
// the matching errno value and whose description is the error's message.
class DBusClient {
 public:
  // Connects to the session bus: DBUS_SESSION_BUS_ADDRESS, else the user's bus.
  static std::unique_ptr<DBusClient> connect(ErrorOut error);
  ~DBusClient();
  DBusClient(const DBusClient&) = delete;
  DBusClient& operator=(const DBusClient&) = delete;

  bool ping(ErrorOut error);
  // True when the service went away without answering, as it should; the error is cleared then.
  bool terminate(ErrorOut error);

  std::optional<ImportResult> openFile(const std::string& path, ErrorOut error);
  std::optional<ImportResult> openDirectory(const std::string& path, ErrorOut error);
  std::optional<ImportResult> openAttributes(const std::string& path, ErrorOut error);
  // Absent arguments travel as empty data and empty strings.
  std::optional<ImportResult> openData(const std::optional<Data>& data,
                                       const std::optional<TextString>& url,
                                       const std::optional<TextString>& mimeType, ErrorOut error);
  std::optional<bool> supportsFile(const std::string& path, ErrorOut error);
  std::optional<bool> isPlainFile(const std::string& path, ErrorOut error);

  // The service object's introspection XML.
  std::optional<std::string> introspect(ErrorOut error);
  // Calls a method of the service's interface that takes and answers nothing (any name, so
  // callers can see how the service treats names it does not have).
  bool callWithoutArguments(std::string_view method, ErrorOut error);

  // The unique bus name of the process that owns the service name; nothing when none does.
  std::optional<std::string> serviceOwner();
  // Polls until some process owns the service name or the time is up.
  bool waitForService(std::chrono::milliseconds timeout);

 private:
  explicit DBusClient(sd_bus* bus) : bus_(bus) {}
  sd_bus_message* newCall(std::string_view method, ErrorOut error);
  // A call whose one argument is the path; refuses paths that D-Bus strings cannot hold.
  sd_bus_message* newPathCall(std::string_view method, const std::string& path, ErrorOut error);
  // Sends the call (taking it over) and answers the reply, or null with the error.
  sd_bus_message* send(sd_bus_message* call, ErrorOut error);
  std::optional<ImportResult> callWithPath(std::string_view method, const std::string& path,
                                           ErrorOut error);
  std::optional<bool> askWithPath(std::string_view method, const std::string& path, ErrorOut error);

  sd_bus* bus_;
};

// Domain of an Error that came from a D-Bus error name.
bool isDBusError(const Error& error, std::string_view name);

}  // namespace ulvek
