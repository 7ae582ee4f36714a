#pragma once

#include <exception>
#include <functional>
#include <string>
#include <string_view>

namespace ulvek {

// One diagnostic line, written to standard error. Lines carry no level and no code.
void logLine(std::string_view line);

// Replaces the destination of log lines (tests capture them); an empty function restores stderr.
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
