#include "service/dbus_service.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "base/log.h"
#include "protocol/dbus_interface.h"
#include "protocol/dbus_values.h"
#include "service/request_pool.h"
#include "service/transfer_interface.h"

namespace ulvek {
namespace {

DBusService& serviceOf(void* userdata) { return *static_cast<DBusService*>(userdata); }

std::string posixMessage(int negativeErrno) { return std::strerror(-negativeErrno); }

// Runs one operation and turns an escaping exception into the caller's error reply; the
// operation decides what it catches itself, the transport catches the rest.
template <typename Operation>
ServiceAnswer guarded(std::string_view selector, Operation operation) {
  try {
    return operation();
  } catch (const std::exception& exception) {
    logException(selector, MIMETypeHelper::kClassName, exception);
    return errorReplyFor(std::current_exception());
  } catch (...) {
    logUnknownException(selector, MIMETypeHelper::kClassName);
    return errorReplyFor(std::current_exception());
  }
}

int replyWithResult(sd_bus_message* call, const ImportResult& result, std::string_view origin) {
  // The bus drops a sender whose message is too large, and the service with it; every import
  // has cut its result to fit (ImportResult::limitSizes).
  sd_bus_message* reply = nullptr;
  int r = sd_bus_message_new_method_return(call, &reply);
  if (r >= 0) r = dbus::appendResult(reply, result);
  if (r >= 0) r = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  if (r < 0) {
    logLine("Cannot send the result: " + std::string(origin) + ": " + posixMessage(r));
    return sd_bus_reply_method_errorf(call, SD_BUS_ERROR_FAILED, "Cannot send the result: %s",
                                      posixMessage(r).c_str());
  }
  return 1;
}

int sendAnswer(sd_bus_message* call, const ServiceAnswer& answer, std::string_view origin) {
  if (const auto* result = std::get_if<ImportResult>(&answer))
    return replyWithResult(call, *result, origin);
  if (const bool* yes = std::get_if<bool>(&answer))
    return sd_bus_reply_method_return(call, "b", int{*yes});
  if (const auto* error = std::get_if<DBusErrorReply>(&answer))
    return sd_bus_reply_method_errorf(call, error->name.c_str(), "%s", error->message.c_str());
  return sd_bus_reply_method_return(call, nullptr);
}

// A path argument; the bus guarantees UTF-8 without NUL.
int readPath(sd_bus_message* call, std::string& path) {
  const char* text = nullptr;
  int r = sd_bus_message_read_basic(call, 's', &text);
  if (r >= 0) path = text ? text : "";
  return r;
}

template <ImportResult (MIMETypeHelper::*open)(const std::string&)>
int onOpenPath(std::string_view selector, sd_bus_message* call, void* userdata) {
  std::string path;
  if (int r = readPath(call, path); r < 0) return r;
  DBusService& service = serviceOf(userdata);
  return service.serve(call, path, [&service, selector, path]() -> ServiceAnswer {
    return guarded(selector, [&] { return (service.helper().*open)(path); });
  });
}

template <bool (MIMETypeHelper::*ask)(const std::string&)>
int onAskPath(std::string_view selector, sd_bus_message* call, void* userdata) {
  std::string path;
  if (int r = readPath(call, path); r < 0) return r;
  DBusService& service = serviceOf(userdata);
  return service.serve(call, path, [&service, selector, path]() -> ServiceAnswer {
    return guarded(selector, [&] { return (service.helper().*ask)(path); });
  });
}

int onTerminate(sd_bus_message* call, void*, sd_bus_error*) {
  // A two-way call that never answers: the caller sees the service leave the bus. The loop ends
  // after this request, as on SIGTERM.
  sd_event_exit(sd_bus_get_event(sd_bus_message_get_bus(call)), 0);
  return 1;
}

// As quiet as Terminate: a client stopping the helper it started is no news.
int onTerminatingSignal(sd_event_source* source, const signalfd_siginfo*, void*) {
  return sd_event_exit(sd_event_source_get_event(source), 0);
}

// Answered in turn with the connection's other requests, so that its answers keep their order.
int onPing(sd_bus_message* call, void* userdata, sd_bus_error*) {
  return serviceOf(userdata).serve(call, "Ping", [] { return ServiceAnswer(); });
}

int onOpenData(sd_bus_message* call, void* userdata, sd_bus_error*) {
  const void* bytes = nullptr;
  std::size_t size = 0;
  const char* url = nullptr;
  const char* mimeType = nullptr;
  int r = sd_bus_message_read_array(call, 'y', &bytes, &size);
  if (r >= 0) r = sd_bus_message_read(call, "ss", &url, &mimeType);
  if (r < 0) return r;
  // D-Bus has no null: empty stands for absent.
  std::optional<Data> data;
  if (size > 0) {
    const auto* begin = static_cast<const std::uint8_t*>(bytes);
    data.emplace(begin, begin + size);
  }
  auto optionalText = [](const char* text) -> std::optional<TextString> {
    if (!text || !*text) return std::nullopt;
    return fromUtf8(text);
  };
  DBusService& service = serviceOf(userdata);
  return service.serve(call, url && *url ? url : "(data)",
                       [&service, data = std::move(data), url = optionalText(url),
                        mimeType = optionalText(mimeType)]() -> ServiceAnswer {
                         return guarded("openData:URL:MIMEType:", [&] {
                           return service.helper().openData(data, url, mimeType);
                         });
                       });
}

int onOpenDirectory(sd_bus_message* call, void* userdata, sd_bus_error*) {
  return onOpenPath<&MIMETypeHelper::openDirectory>("openDirectory:", call, userdata);
}
int onOpenFile(sd_bus_message* call, void* userdata, sd_bus_error*) {
  return onOpenPath<&MIMETypeHelper::openFile>("openFile:", call, userdata);
}
int onOpenAttributes(sd_bus_message* call, void* userdata, sd_bus_error*) {
  return onOpenPath<&MIMETypeHelper::openAttributes>("openAttributes:", call, userdata);
}
int onSupportsFile(sd_bus_message* call, void* userdata, sd_bus_error*) {
  return onAskPath<&MIMETypeHelper::supportsFile>("supportsFile:", call, userdata);
}
int onIsPlainFile(sd_bus_message* call, void* userdata, sd_bus_error*) {
  return onAskPath<&MIMETypeHelper::isPlainFile>("isPlainFile:", call, userdata);
}

// Declaration order is the interface's order; introspection lists the methods this way.
const sd_bus_vtable kVTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Terminate", "", "", onTerminate, 0),
    SD_BUS_METHOD("Ping", "", "", onPing, 0),
    SD_BUS_METHOD_WITH_NAMES("OpenData", "ayss",
                             SD_BUS_PARAM(data) SD_BUS_PARAM(url) SD_BUS_PARAM(mimeType), "a{sv}",
                             SD_BUS_PARAM(result), onOpenData, 0),
    SD_BUS_METHOD_WITH_NAMES("OpenDirectory", "s", SD_BUS_PARAM(path), "a{sv}",
                             SD_BUS_PARAM(result), onOpenDirectory, 0),
    SD_BUS_METHOD_WITH_NAMES("OpenFile", "s", SD_BUS_PARAM(path), "a{sv}", SD_BUS_PARAM(result),
                             onOpenFile, 0),
    SD_BUS_METHOD_WITH_NAMES("OpenAttributes", "s", SD_BUS_PARAM(path), "a{sv}",
                             SD_BUS_PARAM(result), onOpenAttributes, 0),
    SD_BUS_METHOD_WITH_NAMES("SupportsFile", "s", SD_BUS_PARAM(path), "b", SD_BUS_PARAM(supported),
                             onSupportsFile, 0),
    SD_BUS_METHOD_WITH_NAMES("IsPlainFile", "s", SD_BUS_PARAM(path), "b", SD_BUS_PARAM(plain),
                             onIsPlainFile, 0),
    SD_BUS_VTABLE_END,
};

}  // namespace

DBusErrorReply errorReplyFor(std::exception_ptr exception) {
  try {
    std::rethrow_exception(exception);
  } catch (const NotSupportedError& notSupported) {
    return {SD_BUS_ERROR_NOT_SUPPORTED, notSupported.what()};
  } catch (const std::exception& other) {
    return {SD_BUS_ERROR_FAILED, other.what()};
  } catch (...) {
    return {SD_BUS_ERROR_FAILED, "an exception of unknown type"};
  }
}

DBusService::DBusService(MIMETypeHelper& helper, std::size_t concurrentRequests,
                         std::optional<ReadingDeadline::Clock::duration> readerTimeLimit)
    : helper_(helper),
      concurrentRequests_(std::max<std::size_t>(concurrentRequests, 1)),
      readerTimeLimit_(readerTimeLimit) {}

DBusService::~DBusService() {
  sd_bus_slot_unref(transferSlot_);
  sd_bus_slot_unref(slot_);
  sd_bus_flush_close_unref(bus_);
}

Status DBusService::start() {
  int r = sd_bus_open_user(&bus_);
  if (r >= 0) r = sd_bus_set_method_call_timeout(bus_, dbus::kCallTimeoutMicroseconds);
  if (r >= 0) {
    r = sd_bus_add_object_vtable(bus_, &slot_, dbus::kObjectPath, dbus::kInterfaceName, kVTable,
                                 this);
  }
  if (r >= 0) {
    r = sd_bus_add_object_vtable(bus_, &transferSlot_, dbus::kObjectPath,
                                 dbus::kTransferInterfaceName, kTransferVTable, this);
  }
  if (r < 0) return Error::posix(-r, "");
  // Queued: a second instance stays unreachable while the first runs and takes over when the
  // first one ends, so a service is always there once one was started.
  r = sd_bus_request_name(bus_, dbus::kServiceName, SD_BUS_NAME_QUEUE);
  ownsName_ = r > 0;
  if (r == 0) {
    logLine(std::string("Name ") + dbus::kServiceName +
            " already taken; this instance waits in the queue for it");
  } else if (r < 0) {
    logLine(std::string("Name ") + dbus::kServiceName + " refused: " + posixMessage(r) +
            "; this instance stays unreachable");
  }
  return {};
}

void blockTerminatingSignals() {
  sigset_t terminating;
  sigemptyset(&terminating);
  sigaddset(&terminating, SIGTERM);
  sigaddset(&terminating, SIGINT);
  pthread_sigmask(SIG_BLOCK, &terminating, nullptr);
}

int DBusService::serve(sd_bus_message* call, std::string origin,
                       std::function<ServiceAnswer()> operation) {
  // One slow reader must not keep the other clients waiting for ever: its time starts when the
  // request does, on the thread that runs it.
  operation = [limit = readerTimeLimit_, operation = std::move(operation)] {
    ReadingDeadline deadline(limit);
    return operation();
  };
  if (!pool_) return sendAnswer(call, operation(), origin);
  // The message outlives the handler; only this thread touches it and the bus.
  sd_bus_message_ref(call);
  const char* sender = sd_bus_message_get_sender(call);
  pool_->submit(sender ? sender : "",
                [this, call, origin = std::move(origin), operation = std::move(operation)] {
                  ServiceAnswer answer = operation();
                  {
                    std::lock_guard guard(finishedLock_);
                    finished_.push_back({call, std::move(answer), origin});
                  }
                  std::uint64_t one = 1;
                  [[maybe_unused]] ssize_t written = ::write(wakeup_, &one, sizeof one);
                });
  return 1;
}

void DBusService::sendFinished() {
  std::vector<Finished> finished;
  {
    std::lock_guard guard(finishedLock_);
    finished.swap(finished_);
  }
  for (Finished& done : finished) {
    sendAnswer(done.call, done.answer, done.origin);
    sd_bus_message_unref(done.call);
  }
}

int DBusService::onFinished(sd_event_source*, int fd, uint32_t, void* userdata) {
  std::uint64_t count = 0;
  [[maybe_unused]] ssize_t read = ::read(fd, &count, sizeof count);
  static_cast<DBusService*>(userdata)->sendFinished();
  return 0;
}

int DBusService::onExit(sd_event_source*, void* userdata) {
  auto* service = static_cast<DBusService*>(userdata);
  service->pool_->drain();
  service->sendFinished();
  return 0;
}

int DBusService::run() {
  blockTerminatingSignals();
  sd_event* event = nullptr;
  int r = sd_event_default(&event);
  for (int number : {SIGTERM, SIGINT}) {
    if (r >= 0) r = sd_event_add_signal(event, nullptr, number, onTerminatingSignal, nullptr);
  }
  sd_event_source* finishedSource = nullptr;
  sd_event_source* drainSource = nullptr;
  if (r >= 0 && concurrentRequests_ > 1) {
    wakeup_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    r = wakeup_ < 0 ? -errno
                    : sd_event_add_io(event, &finishedSource, wakeup_, EPOLLIN, onFinished, this);
    if (r >= 0) pool_ = std::make_unique<RequestPool>(concurrentRequests_);
    // Requests taken before the end are answered before the bus closes, which it does as the
    // loop exits.
    if (r >= 0) r = sd_event_add_exit(event, &drainSource, onExit, this);
    if (r >= 0) r = sd_event_source_set_priority(drainSource, SD_EVENT_PRIORITY_IMPORTANT);
  }
  if (r >= 0) r = sd_bus_attach_event(bus_, event, SD_EVENT_PRIORITY_NORMAL);
  // A bus that goes away ends the loop with status 1.
  if (r >= 0) r = sd_bus_set_exit_on_disconnect(bus_, 1);
  if (r >= 0) r = sd_event_loop(event);
  int status = r;
  // A loop that failed still finishes what it took.
  if (pool_) {
    pool_->drain();
    pool_.reset();
    sendFinished();
  }
  sd_event_source_disable_unref(drainSource);
  sd_event_source_disable_unref(finishedSource);
  if (wakeup_ >= 0) ::close(wakeup_);
  wakeup_ = -1;
  if (r < 0) {
    logLine("Cannot serve: " + posixMessage(r));
    status = 1;
  } else if (r != 0) {
    logLine("Lost the session bus");
  }
  // Leaving: later callers find no owner (or the next instance in the queue) instead of a
  // service that will not answer.
  if (ownsName_ && sd_bus_is_open(bus_) > 0) sd_bus_release_name(bus_, dbus::kServiceName);
  ownsName_ = false;
  sd_bus_detach_event(bus_);
  sd_event_unref(event);
  return status;
}

}  // namespace ulvek
