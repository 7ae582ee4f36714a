#pragma once

#include <optional>
#include <string>

#include "base/property_value.h"

namespace ulvek {

// Finder info and resource forks as Mac file servers on Linux keep them: Netatalk in
// "user.org.netatalk.Metadata" (an AppleDouble header) and "user.org.netatalk.ResourceFork",
// Samba's vfs_fruit in the streams "user.DosStream.AFP_AfpInfo:$DATA" (an AfpInfo record) and
// "user.DosStream.AFP_Resource:$DATA". Read only where the Mac attributes are absent.
std::optional<Data> fileServerFinderInfo(const std::string& path);
std::optional<Data> fileServerResourceFork(const std::string& path);

}  // namespace ulvek
