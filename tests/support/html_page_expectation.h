// Our own web pages in tests/data/html and the NAME.expect written beside each.
#pragma once

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "test_support.h"
#include "text/encodings.h"

namespace ulvek::testing {

// NAME.expect: "encoding: N", "title: T" and one "meta NAME: VALUE" per meta attribute, then a
// line "---" and the import text.
struct PageExpectation {
  StringEncoding encoding = 0;
  std::string title;
  std::map<std::string, std::string> meta;
  std::string text;
};

inline PageExpectation readExpectation(const std::filesystem::path& path) {
  PageExpectation expected;
  std::istringstream in(readFile(path));
  for (std::string line; std::getline(in, line) && line != "---";) {
    const std::size_t colon = line.find(": ");
    if (colon == std::string::npos) continue;
    const std::string key = line.substr(0, colon), value = line.substr(colon + 2);
    if (key == "encoding")
      expected.encoding = std::stoull(value, nullptr, 0);
    else if (key == "title")
      expected.title = value;
    else if (key.starts_with("meta "))
      expected.meta[key.substr(5)] = value;
  }
  std::ostringstream text;
  text << in.rdbuf();
  expected.text = text.str();
  return expected;
}

inline std::string trimmedEnd(std::string text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  return text;
}

struct Page {
  std::string name;
  std::filesystem::path path;
  std::string bytes;
  PageExpectation expected;
};

// In name order, each with its expectation.
inline std::vector<Page> ownPages() {
  std::vector<Page> pages;
  for (const auto& entry : std::filesystem::directory_iterator(dataPath() / "html")) {
    if (entry.path().extension() != ".html") continue;
    std::filesystem::path expectPath = entry.path();
    expectPath.replace_extension(".expect");
    pages.push_back({entry.path().filename().string(), entry.path(), readFile(entry.path()),
                     readExpectation(expectPath)});
  }
  std::sort(pages.begin(), pages.end(),
            [](const Page& a, const Page& b) { return a.name < b.name; });
  return pages;
}

}  // namespace ulvek::testing
