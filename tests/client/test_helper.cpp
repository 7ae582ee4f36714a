// A helper for the client tests that misbehaves on request, through its environment (a launched
// helper gets no arguments):
//   ULVEK_TEST_HELPER_NAME    bus name to register (required)
//   ULVEK_TEST_HELPER_DELAY   seconds to wait before registering
//   ULVEK_TEST_HELPER_HANG    seconds Ping takes to answer
//   ULVEK_TEST_HELPER_BUSY    seconds after start during which StillBusy answers true
//   ULVEK_TEST_HELPER_EXIT    exit at once with this status
#include <systemd/sd-bus.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "client/helper_proxy.h"

namespace {

double seconds(const char* variable) {
  const char* value = std::getenv(variable);
  return value ? std::atof(value) : 0;
}

const auto kStart = std::chrono::steady_clock::now();

int ping(sd_bus_message* message, void*, sd_bus_error*) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds("ULVEK_TEST_HELPER_HANG")));
  return sd_bus_reply_method_return(message, "");
}

int stillBusy(sd_bus_message* message, void*, sd_bus_error*) {
  std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - kStart;
  return sd_bus_reply_method_return(message, "b",
                                    elapsed.count() < seconds("ULVEK_TEST_HELPER_BUSY"));
}

const sd_bus_vtable kVTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Ping", "", "", ping, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("StillBusy", "", "b", stillBusy, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

}  // namespace

int main() {
  if (const char* status = std::getenv("ULVEK_TEST_HELPER_EXIT")) return std::atoi(status);
  const char* name = std::getenv("ULVEK_TEST_HELPER_NAME");
  if (!name) return 2;
  std::string busName = ulvek::busNameForRegisteredName(name);
  std::string path = ulvek::objectPathForBusName(busName);
  sd_bus* bus = nullptr;
  if (sd_bus_open_user(&bus) < 0) return 3;
  if (sd_bus_add_object_vtable(bus, nullptr, path.c_str(), "com.ulvek_technologies.UlvekBotHelper",
                               kVTable, nullptr) < 0)
    return 4;
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds("ULVEK_TEST_HELPER_DELAY")));
  if (sd_bus_request_name(bus, busName.c_str(), 0) < 0) return 5;
  for (;;) {
    int r = sd_bus_process(bus, nullptr);
    if (r < 0) return 6;
    if (r == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) return 7;
  }
}
