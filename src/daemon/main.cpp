// ulvekbotd64: the import service on the session bus.
#include <string>

#include "base/log.h"
#include "import/mime_type_helper.h"
#include "service/dbus_service.h"

int main() {
  ulvek::MIMETypeHelper helper;
  ulvek::DBusService service(helper);
  if (ulvek::Status started = service.start(); !started) {
    ulvek::logLine("Cannot connect to the session bus: " + started.error().localizedDescription);
    return 1;
  }
  // Returns only when the bus goes away; Terminate exits from inside the request.
  service.run();
  return 1;
}
