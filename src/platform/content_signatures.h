#pragma once

// The content signatures of the format registry: how a file's bytes show its type when its name
// does not.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/file_bytes.h"

namespace ulvek {

// How many leading bytes the signatures look at.
inline constexpr std::size_t kSignatureHeadSize = 8192;

// The first bytes of a regular file (links followed), up to kSignatureHeadSize; nothing for
// other items and files that cannot be read.
std::optional<std::string> fileHead(const std::string& path);

// The registry type whose signature the file carries: container signatures first (zip members,
// a zip's "mimetype", a property list's keys; these open the file at `path`), then
// leading bytes, then, with `textToo`, text signatures. `head` holds the file's first bytes.
// Nothing when no signature matches.
std::optional<std::string_view> signatureType(std::string_view head, const std::string& path,
                                              bool textToo);

}  // namespace ulvek
