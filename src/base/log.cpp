#include "base/log.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace ulvek {
namespace {

LogSink& sink() {
  static LogSink instance;
  return instance;
}

std::string callStackSymbols() {
  void* frames[64];
  int count = backtrace(frames, 64);
  std::unique_ptr<char*, decltype(&std::free)> symbols(backtrace_symbols(frames, count),
                                                       &std::free);
  std::string joined;
  if (!symbols) return joined;
  // Skip this function and the logger itself.
  for (int i = 2; i < count; ++i) {
    if (!joined.empty()) joined += '\n';
    joined += symbols.get()[i];
  }
  return joined;
}

void logExceptionParts(std::string_view operation, std::string_view className,
                       std::string_view name, std::string_view reason) {
  std::string line;
  line.append(operation).append(" (").append(className).append("):\n");
  line.append(name).append("\n").append(reason).append("\n").append(callStackSymbols());
  logLine(line);
}

}  // namespace

void logLine(std::string_view line) {
  if (sink()) {
    sink()(line);
    return;
  }
  std::string out(line);
  out += '\n';
  // One write per entry so concurrent writers do not interleave within a line.
  for (std::size_t done = 0; done < out.size();) {
    ssize_t n = ::write(STDERR_FILENO, out.data() + done, out.size() - done);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
}

void setLogSink(LogSink newSink) { sink() = std::move(newSink); }

std::string exceptionName(const std::exception& exception) {
  const char* mangled = typeid(exception).name();
  int status = 0;
  std::unique_ptr<char, decltype(&std::free)> demangled(
      abi::__cxa_demangle(mangled, nullptr, nullptr, &status), &std::free);
  return status == 0 && demangled ? std::string(demangled.get()) : std::string(mangled);
}

void logException(std::string_view operation, std::string_view className,
                  const std::exception& exception) {
  logExceptionParts(operation, className, exceptionName(exception), exception.what());
}

void logUnknownException(std::string_view operation, std::string_view className) {
  logExceptionParts(operation, className, "UnknownException", "an exception of unknown type");
}

}  // namespace ulvek
