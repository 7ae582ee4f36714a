#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/status.h"
#include "platform/file_bytes.h"

namespace ulvek {

// Opens `relativePath` below the folder `packageRoot` only when it resolves inside it with no
// symbolic link on the way (the root itself may be one): a package's members are read where
// they lie and a link in a document never leads to the user's other files. openat2 with
// RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS; where the kernel lacks it (before 5.6), one openat
// with O_NOFOLLOW per path step. `flags` are open(2) flags; O_CLOEXEC is always added. Answers
// the descriptor, or -1 with errno set (ELOOP for a link, EXDEV for a path leading out).
int openBeneath(const std::string& packageRoot, std::string_view relativePath, int flags);

// YES when `relativePath` names a regular file that openBeneath would open; nothing is opened
// for reading (a FIFO stays untouched).
bool isRegularFileBeneath(const std::string& packageRoot, std::string_view relativePath);

// A member of a package (a folder the user sees as one document) read as FileBytes::read reads a
// file, but only where openBeneath finds it: ELOOP for a link on the way, EXDEV for a path that
// leads out, EINVAL for anything but a regular file (which is never opened for reading).
Result<FileBytes> readFileBeneath(const std::string& packageRoot, std::string_view relativePath,
                                  std::uint64_t limit = FileBytes::kNoLimit);

// The step-by-step way alone, for kernels without openat2 (and for tests on kernels with it).
int openBeneathByStep(int rootFd, std::string_view relativePath, int flags);

}  // namespace ulvek
