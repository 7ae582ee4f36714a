#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "base/property_value.h"

namespace ulvek {

// Finder info and resource forks as Mac file servers on Linux keep them: Netatalk in
// "user.org.netatalk.Metadata" (an AppleDouble header) and "user.org.netatalk.ResourceFork",
// Samba's vfs_fruit in the streams "user.DosStream.AFP_AfpInfo:$DATA" (an AfpInfo record) and
// "user.DosStream.AFP_Resource:$DATA". Read only where the Mac attributes are absent.
inline constexpr const char* kFileServerResourceForkAttributes[] = {
    "user.org.netatalk.ResourceFork", "user.DosStream.AFP_Resource:$DATA"};

std::optional<Data> fileServerFinderInfo(const std::string& path);
std::optional<Data> fileServerResourceFork(const std::string& path);
// The same fork with the name of the attribute that holds it, so that it can be written back.
std::optional<std::pair<std::string_view, Data>> fileServerResourceForkAttribute(
    const std::string& path);

}  // namespace ulvek
