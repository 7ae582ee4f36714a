#include "base/failure.h"

#include "base/log.h"

namespace ulvek {
namespace {

thread_local FailureScope* innermost = nullptr;

}  // namespace

std::string_view failureKindName(FailureKind kind) {
  switch (kind) {
#define ULVEK_FAILURE_NAME(name, text) \
  case FailureKind::name:              \
    return text;
    ULVEK_FAILURE_KINDS(ULVEK_FAILURE_NAME)
#undef ULVEK_FAILURE_NAME
  }
  return "unknown";
}

FailureScope::FailureScope() : outer_(innermost) { innermost = this; }

FailureScope::~FailureScope() { innermost = outer_; }

void FailureScope::report(FailureKind kind, std::string message) {
  if (!failure_) failure_ = Failure{kind, std::move(message)};
}

void reportFailure(FailureKind kind, std::string message) {
  if (innermost) innermost->report(kind, std::move(message));
}

bool failureReported() { return innermost && innermost->failure(); }

void logFailure(FailureKind kind, std::string line) {
  logLine(line, failureKindName(kind));
  reportFailure(kind, std::move(line));
}

}  // namespace ulvek
