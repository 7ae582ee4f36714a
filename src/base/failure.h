#pragma once

// Why a file could not be read, for callers that tell their users (the command line's "Error"
// of each file). Readers and importers report where they log; an import collects what was
// reported on its thread while it ran. The service's answers do not change: it only logs.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ulvek {

#define ULVEK_FAILURE_KINDS(X)                                                   \
  X(NotFound, "not-found")               /* no such file */                      \
  X(Permission, "permission")            /* the file or folder cannot be read */ \
  X(Damaged, "damaged")                  /* its reader found it broken */        \
  X(Encrypted, "encrypted")              /* its content is locked */             \
  X(ImporterCrashed, "importer-crashed") /* the plug-in's worker died */         \
  X(ImporterTimeout, "importer-timeout") /* the plug-in ran past its time */     \
  X(TooLarge, "too-large")               /* over a size limit, not read */       \
  X(TimedOut, "timed-out")               /* read only in part: out of time */    \
  X(Unsupported, "unsupported")          /* no reader or importer for its kind */

enum class FailureKind : std::uint8_t {
#define ULVEK_FAILURE_ENUM(name, text) name,
  ULVEK_FAILURE_KINDS(ULVEK_FAILURE_ENUM)
#undef ULVEK_FAILURE_ENUM
};

// "not-found", "damaged", …
std::string_view failureKindName(FailureKind kind);

struct Failure {
  FailureKind kind;
  std::string message;
};

// Collects the failures reported on this thread while it lives; scopes nest, the inner one
// collecting. The first failure reported is kept: later ones follow from it.
class FailureScope {
 public:
  FailureScope();
  ~FailureScope();
  FailureScope(const FailureScope&) = delete;
  FailureScope& operator=(const FailureScope&) = delete;

  const std::optional<Failure>& failure() const { return failure_; }
  void report(FailureKind kind, std::string message);
  void clear() { failure_.reset(); }

 private:
  FailureScope* outer_;
  std::optional<Failure> failure_;
};

// Reports to the thread's innermost scope; nothing happens outside one.
void reportFailure(FailureKind kind, std::string message);
// Whether the thread's innermost scope holds a failure already: a fallback that finds nothing
// more need not add a reason of its own.
bool failureReported();

// One log line that is also the failure's message.
void logFailure(FailureKind kind, std::string line);

}  // namespace ulvek
