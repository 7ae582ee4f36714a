#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include "base/deadline.h"
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

// What an operation answers: nothing (Ping), a result, yes or no, or an error.
using ServiceAnswer = std::variant<std::monostate, ImportResult, bool, DBusErrorReply>;

class RequestPool;

// Serves the root object's eight operations on the session bus, by default one request at a time
// on the calling thread; with more than one at a time, requests of different connections run on
// threads of their own, while those of one connection are answered in order. Import failures come
// back to the caller as D-Bus errors: NotSupportedError as org.freedesktop.DBus.Error.NotSupported,
// any other exception as org.freedesktop.DBus.Error.Failed with its message; the service logs the
// exception and goes on serving.
class DBusService {
 public:
  // Each request's in-process readers stop after `readerTimeLimit` (base/deadline.h); none: no
  // limit.
  explicit DBusService(MIMETypeHelper& helper, std::size_t concurrentRequests = 1,
                       std::optional<ReadingDeadline::Clock::duration> readerTimeLimit = {});
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
  // thread and read in the loop: the requests under way are finished and answered first.
  int run();

  MIMETypeHelper& helper() { return helper_; }

  // Answers `call` with what `operation` answers: here and now, or from a thread of the pool when
  // requests run at once. Called on the loop's thread only, as sd-bus is.
  int serve(sd_bus_message* call, std::string origin, std::function<ServiceAnswer()> operation);

 private:
  // An answer made on a pool thread, to be sent from the loop's thread.
  struct Finished {
    sd_bus_message* call;
    ServiceAnswer answer;
    std::string origin;
  };
  void sendFinished();
  static int onFinished(sd_event_source* source, int fd, uint32_t events, void* userdata);
  static int onExit(sd_event_source* source, void* userdata);

  MIMETypeHelper& helper_;
  std::size_t concurrentRequests_;
  std::optional<ReadingDeadline::Clock::duration> readerTimeLimit_;
  std::unique_ptr<RequestPool> pool_;
  // Pool threads write to it when they queue an answer; the loop then sends them.
  int wakeup_ = -1;
  std::mutex finishedLock_;
  std::vector<Finished> finished_;
  sd_bus* bus_ = nullptr;
  sd_bus_slot* slot_ = nullptr;
  sd_bus_slot* transferSlot_ = nullptr;  // the Transfer interface (service/transfer_interface.h)
  bool ownsName_ = false;
};

}  // namespace ulvek
