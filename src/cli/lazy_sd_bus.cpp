// The command line reaches the service only for `ulvekbot call`, yet linking sd-bus would load
// libsystemd and six more libraries into every run, a large share of a small import's start-up.
// These definitions stand in for the sd-bus calls the client makes and load libsystemd on the
// first one. The program links with --as-needed, so libsystemd is left out of its list of
// libraries as long as every call it makes is one of these.

#include <dlfcn.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstdarg>

namespace {

void* systemd() {
  static void* const handle = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
  return handle;
}

template <typename Function>
Function* real(const char* name) {
  void* handle = systemd();
  return handle ? reinterpret_cast<Function*>(dlsym(handle, name)) : nullptr;
}

}  // namespace

// Without libsystemd every call fails as an unsupported operation would.
#define ULVEK_LAZY(Result, name, parameters, arguments, failure) \
  extern "C" Result name parameters {                            \
    static auto* const function = real<decltype(name)>(#name);   \
    return function ? function arguments : failure;              \
  }

ULVEK_LAZY(int, sd_bus_open_user, (sd_bus * *bus), (bus), -ENOSYS)
ULVEK_LAZY(sd_bus*, sd_bus_unref, (sd_bus * bus), (bus), nullptr)
ULVEK_LAZY(sd_bus*, sd_bus_flush_close_unref, (sd_bus * bus), (bus), nullptr)
ULVEK_LAZY(int, sd_bus_is_open, (sd_bus * bus), (bus), 0)
ULVEK_LAZY(int, sd_bus_can_send, (sd_bus * bus, char type), (bus, type), 0)
ULVEK_LAZY(int, sd_bus_set_method_call_timeout, (sd_bus * bus, uint64_t usec), (bus, usec), -ENOSYS)
ULVEK_LAZY(int, sd_bus_call,
           (sd_bus * bus, sd_bus_message* m, uint64_t usec, sd_bus_error* error,
            sd_bus_message** reply),
           (bus, m, usec, error, reply), -ENOSYS)
ULVEK_LAZY(void, sd_bus_error_free, (sd_bus_error * e), (e), void())
ULVEK_LAZY(int, sd_bus_error_get_errno, (const sd_bus_error* e), (e), 0)
ULVEK_LAZY(int, sd_bus_error_is_set, (const sd_bus_error* e), (e), 0)
ULVEK_LAZY(int, sd_bus_message_new_method_call,
           (sd_bus * bus, sd_bus_message** m, const char* destination, const char* path,
            const char* interface, const char* member),
           (bus, m, destination, path, interface, member), -ENOSYS)
ULVEK_LAZY(sd_bus_message*, sd_bus_message_unref, (sd_bus_message * m), (m), nullptr)
ULVEK_LAZY(int, sd_bus_message_append_array,
           (sd_bus_message * m, char type, const void* ptr, size_t size), (m, type, ptr, size),
           -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_append_basic, (sd_bus_message * m, char type, const void* p),
           (m, type, p), -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_at_end, (sd_bus_message * m, int complete), (m, complete), -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_open_container,
           (sd_bus_message * m, char type, const char* contents), (m, type, contents), -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_close_container, (sd_bus_message * m), (m), -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_enter_container,
           (sd_bus_message * m, char type, const char* contents), (m, type, contents), -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_exit_container, (sd_bus_message * m), (m), -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_peek_type, (sd_bus_message * m, char* type, const char** contents),
           (m, type, contents), -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_read_array,
           (sd_bus_message * m, char type, const void** ptr, size_t* size), (m, type, ptr, size),
           -ENOSYS)
ULVEK_LAZY(int, sd_bus_message_read_basic, (sd_bus_message * m, char type, void* p), (m, type, p),
           -ENOSYS)

// The variadic calls go through their va_list forms.
extern "C" int sd_bus_message_append(sd_bus_message* m, const char* types, ...) {
  static auto* const function = real<decltype(sd_bus_message_appendv)>("sd_bus_message_appendv");
  if (!function) return -ENOSYS;
  va_list arguments;
  va_start(arguments, types);
  int result = function(m, types, arguments);
  va_end(arguments);
  return result;
}

extern "C" int sd_bus_message_read(sd_bus_message* m, const char* types, ...) {
  static auto* const function = real<decltype(sd_bus_message_readv)>("sd_bus_message_readv");
  if (!function) return -ENOSYS;
  va_list arguments;
  va_start(arguments, types);
  int result = function(m, types, arguments);
  va_end(arguments);
  return result;
}

extern "C" int sd_bus_call_method(sd_bus* bus, const char* destination, const char* path,
                                  const char* interface, const char* member, sd_bus_error* error,
                                  sd_bus_message** reply, const char* types, ...) {
  static auto* const function = real<decltype(sd_bus_call_methodv)>("sd_bus_call_methodv");
  if (!function) return -ENOSYS;
  va_list arguments;
  va_start(arguments, types);
  int result = function(bus, destination, path, interface, member, error, reply, types, arguments);
  va_end(arguments);
  return result;
}
