#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/status.h"
#include "protocol/import_result.h"

typedef struct sd_bus sd_bus;

namespace ulvek {

// How a registered helper name is found on the session bus: a name without a dot lives under
// "com.ulvek_technologies." ("ulvekbotd64" is "com.ulvek_technologies.ulvekbotd64"), a name with
// one is a bus name already. The root object's path is the bus name with "/" for "." (and "_"
// for "-"): "/com/ulvek_technologies/ulvekbotd64".
std::string busNameForRegisteredName(std::string_view name);
std::string objectPathForBusName(std::string_view busName);

class HelperProxy;

// Asks the session bus to start the helper from its service file (D-Bus activation) and waits
// until it owns its name, or for at most `timeout` seconds. Succeeds at once for a running
// helper; fails with ServiceUnknown where no service file names it.
Status activateRegisteredName(std::string_view registeredName, double timeout);

// One connection to the session bus, made for the helper that owned a registered name when it was
// looked up. Like every sd-bus connection it belongs to one thread at a time.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // Looks the name up on the session bus: nothing when the bus cannot be reached or no process
  // owns the name.
  static std::shared_ptr<Connection> lookUp(std::string_view registeredName);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // The bus is open and some process still owns the name.
  bool isValid();
  // D-Bus has one time-out for a call and its reply; both set it. Zero or less keeps it.
  void setRequestTimeout(double seconds);
  void setReplyTimeout(double seconds);
  double requestTimeout() const { return timeoutSeconds_; }

  HelperProxy rootProxy();
  const std::string& busName() const { return busName_; }
  const std::string& objectPath() const { return objectPath_; }
  // The unique name of the process that owns the bus name now, or nothing.
  std::optional<std::string> nameOwner();
  // The owner last seen (by the lookup or nameOwner()): the process calls are meant for.
  const std::string& knownOwner() const { return owner_; }
  sd_bus* bus() { return bus_; }

 private:
  Connection(sd_bus* bus, std::string busName, std::string owner);

  sd_bus* bus_;
  std::string busName_;
  std::string objectPath_;
  std::string owner_;
  double timeoutSeconds_ = 25;  // sd-bus's own default
};

// The helper's root object: the service's eight operations, each a call on the connection it was
// made from. A failed call answers the D-Bus error as an `Error` whose domain is the error name
// ("org.freedesktop.DBus.Error.ServiceUnknown", ".NoReply", ".Timeout", ...), whose code is the
// matching errno value and whose description is the error's message. A call left without an
// answer is told apart by who is to blame: ".NoReply" when the helper left the bus during it
// (it died, or ended on its way out), ".Timeout" when it was still there at the deadline.
class HelperProxy {
 public:
  // Hands out a proxy of a freshly started helper (HelperTask gives its proxies one).
  using Relauncher = std::function<std::optional<HelperProxy>()>;

  explicit HelperProxy(std::shared_ptr<Connection> connection, std::string protocol = {});
  // A call that finds the helper gone (it left during the call, or the name has no owner any
  // more) is made once more, on the proxy the relauncher answers, while the relauncher lives.
  // Terminate never is.
  void setRelauncher(std::weak_ptr<Relauncher> relauncher) { relauncher_ = std::move(relauncher); }

  // The interface the calls name; empty calls the methods without naming one.
  void setProtocolForProxy(std::string_view protocol) { protocol_ = protocol; }
  const std::string& protocol() const { return protocol_; }
  const std::shared_ptr<Connection>& connectionForProxy() const { return connection_; }

  // Paths that a D-Bus string cannot hold (not UTF-8, such as Latin-1 names) and data over
  // 32 MiB go through the Transfer interface (com.ulvek_technologies.UlvekBotHelper.Transfer),
  // everything else through the classic one. Whichever answers, a text cut to fit is marked with
  // the key "TextTruncated" (true) only by the Transfer interface.
  Status ping();
  // Succeeds when the helper went away without answering, as it should.
  Status terminate();
  Result<ImportResult> openFile(const std::string& path);
  Result<ImportResult> openDirectory(const std::string& path);
  Result<ImportResult> openAttributes(const std::string& path);
  // Absent arguments travel as empty data and empty strings.
  Result<ImportResult> openData(const std::optional<Data>& data,
                                const std::optional<TextString>& url,
                                const std::optional<TextString>& mimeType);
  Result<bool> supportsFile(const std::string& path);
  Result<bool> isPlainFile(const std::string& path);

  // Whether the root object has the method, by introspection (nothing is called).
  bool respondsToSelector(std::string_view method);
  // The helper's "StillBusy" answer; helpers without it are never busy.
  Result<bool> stillBusy();

  // Calls a method that takes and answers nothing.
  Status call(std::string_view method);
  // The root object's introspection XML.
  Result<std::string> introspect();

 private:
  template <typename Answer>
  Answer retried(const std::function<Answer(HelperProxy&)>& attempt);
  Result<ImportResult> importPath(std::string_view method, const std::string& path);
  Result<bool> askPath(std::string_view method, const std::string& path);

  std::shared_ptr<Connection> connection_;
  std::string protocol_;
  std::weak_ptr<Relauncher> relauncher_;
};

}  // namespace ulvek
