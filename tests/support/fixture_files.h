// Listing the fixtures of one family in tests/data.
#pragma once

#include <algorithm>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace ulvek::testing {

// The files directly in `folder` whose names end in one of `endings`, in name order; AppleDouble
// companions ("._NAME") are left out.
inline std::vector<std::filesystem::path> filesOf(const std::filesystem::path& folder,
                                                  std::initializer_list<std::string_view> endings) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (!name.starts_with("._") &&
        std::any_of(endings.begin(), endings.end(),
                    [&](std::string_view ending) { return name.ends_with(ending); }))
      files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace ulvek::testing
