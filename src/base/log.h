#pragma once

#include <exception>
#include <functional>
#include <string>
#include <string_view>

namespace ulvek {

// One diagnostic line, written to standard error. Lines carry no level and no code. On standard
// error every line has one shape, "PROGRAM: PART: FILE: LINE", from the innermost LogContext:
// the part is left out when no context names one, the file when there is none or the line
// names it already. `tag` (a failure's kind) goes before the line there and nowhere else.
void logLine(std::string_view line, std::string_view tag = {});

// What the lines logged on this thread while it lives are about: the part of the program
// writing them ("reader rtf", "importer PDF") and the file it reads. Contexts nest; an empty
// argument leaves the outer context's value in force.
class LogContext {
 public:
  explicit LogContext(std::string_view part, std::string_view file = {});
  ~LogContext();
  LogContext(const LogContext&) = delete;
  LogContext& operator=(const LogContext&) = delete;

  // The innermost part and file named, or empty.
  static std::string_view part();
  static std::string_view file();

 private:
  LogContext* outer_;
  std::string part_;
  std::string file_;
};

// The line as standard error shows it; `program` is the running program's short name.
std::string decoratedLogLine(std::string_view program, std::string_view line,
                             std::string_view tag = {});

// Replaces the destination of log lines (tests capture them, without decoration); an empty
// function restores stderr.
using LogSink = std::function<void(std::string_view)>;
void setLogSink(LogSink sink);

// A caught exception, in the one format "%@ (%@):\n%@\n%@\n%@": the operation, the receiver's
// class, the exception's name, its reason and the call-stack symbols joined with "\n".
void logException(std::string_view operation, std::string_view className,
                  const std::exception& exception);
// The same for an exception of unknown type (`catch (...)`).
void logUnknownException(std::string_view operation, std::string_view className);

// Readable name of an exception's dynamic type.
std::string exceptionName(const std::exception& exception);

}  // namespace ulvek
