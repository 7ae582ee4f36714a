#pragma once

#include "base/error.h"

// Which call failures mean the connection to a helper is gone or stuck, as opposed to the helper
// answering with an error of its own.
namespace ulvek {

// A call that could not reach the helper or get its answer: a time-out, a helper that died
// during the call (NoReply), no process owning the name, a closed or unreachable bus.
bool isPortException(const Error& error);
// A call whose answer did not come in time from a helper that was still there; never one that
// died.
bool isPortTimeoutException(const Error& error);

}  // namespace ulvek
