// The host's side of the worker protocol: whatever a broken or hostile worker writes is read as
// one message, refused, or times out; never more.
#include <unistd.h>

#include <chrono>
#include <cstdint>

#include "fuzz_support.h"
#include "importers/worker_protocol.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  int pipe[2];
  if (::pipe(pipe) != 0 || size > 60000) return 0;
  ssize_t written = ::write(pipe[1], data, size);
  ::close(pipe[1]);
  if (written >= 0) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(50);
    while (ulvek::worker::readMessage(pipe[0], deadline).ok()) {
    }
  }
  ::close(pipe[0]);
  return 0;
}
