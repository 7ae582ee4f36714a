#pragma once

#include <exception>
#include <string>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include "base/error.h"
#include "base/status.h"
#include "import/mime_type_helper.h"

namespace ulvek {

// Blocks SIGTERM and SIGINT in the calling thread (and the threads it starts later), so that the
// service's loop reads them.
void blockTerminatingSignals();

// The D-Bus error that an exception escaping an operation answers.
struct DBusErrorReply {
  std::string name;
  std::string message;
};
DBusErrorReply errorReplyFor(std::exception_ptr exception);

// Serves the root object's eight operations on the session bus, one request at a time on the
// calling thread. Import failures come back to the caller as D-Bus errors: NotSupportedError as
// org.freedesktop.DBus.Error.NotSupported, any other exception as org.freedesktop.DBus.Error.Failed
// with its message; the service logs the exception and goes on serving.
class DBusService {
 public:
  explicit DBusService(MIMETypeHelper& helper) : helper_(helper) {}
  ~DBusService();
  DBusService(const DBusService&) = delete;
  DBusService& operator=(const DBusService&) = delete;

  // Connects to the session bus (DBUS_SESSION_BUS_ADDRESS, else the user's bus), exports the
  // root object and asks for the well-known name without queueing. A name that another process
  // holds is only logged: the service then keeps running, reachable by no well-known name. Fails
  // only when there is no bus to connect to.
  [[nodiscard]] Status start();

  // Whether the well-known name was granted by start().
  bool ownsName() const { return ownsName_; }

  // Serves requests until Terminate, SIGTERM or SIGINT (answers 0) or until the connection to
  // the bus ends (answers 1), then gives up the name. The two signals are blocked in the calling
  // thread and read in the loop: a request under way is finished first.
  int run();

  MIMETypeHelper& helper() { return helper_; }

 private:
  MIMETypeHelper& helper_;
  sd_bus* bus_ = nullptr;
  sd_bus_slot* slot_ = nullptr;
  sd_bus_slot* transferSlot_ = nullptr;  // the Transfer interface (service/transfer_interface.h)
  bool ownsName_ = false;
};

}  // namespace ulvek
