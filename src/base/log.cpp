#include "base/log.h"

#include <cxxabi.h>
#include <execinfo.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <typeinfo>

namespace ulvek {
namespace {

LogSink& sink() {
  static LogSink instance;
  return instance;
}

thread_local LogContext* innermostContext = nullptr;

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

LogContext::LogContext(std::string_view part, std::string_view file)
    : outer_(innermostContext), part_(part), file_(file) {
  innermostContext = this;
}

LogContext::~LogContext() { innermostContext = outer_; }

std::string_view LogContext::part() {
  for (const LogContext* context = innermostContext; context; context = context->outer_)
    if (!context->part_.empty()) return context->part_;
  return {};
}

std::string_view LogContext::file() {
  for (const LogContext* context = innermostContext; context; context = context->outer_)
    if (!context->file_.empty()) return context->file_;
  return {};
}

std::string decoratedLogLine(std::string_view program, std::string_view line,
                             std::string_view tag) {
  std::string out(program);
  out += ": ";
  if (std::string_view part = LogContext::part(); !part.empty()) out.append(part).append(": ");
  std::string_view file = LogContext::file();
  if (!file.empty() && line.find(file) == std::string_view::npos) out.append(file).append(": ");
  if (!tag.empty()) out.append(tag).append(": ");
  out += line;
  return out;
}

void logLine(std::string_view line, std::string_view tag) {
  if (sink()) {
    sink()(line);
    return;
  }
  std::string out = decoratedLogLine(program_invocation_short_name, line, tag);
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
