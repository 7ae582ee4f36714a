#pragma once

// OLE2 compound files (Word 97 documents and their summary information), read through libgsf.
// libgsf and the GLib and GIO libraries under it cost every process that links them milliseconds
// at start, so they live in a module of their own, loaded with the first container opened.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/property_value.h"

namespace ulvek {

// One entry of the summary information: libgsf's property name and its value, a text or a
// moment in W3C form ("2004-09-28T16:35:00Z").
struct OleSummaryEntry {
  std::string name;
  std::string value;
  bool isDate = false;
};

class OleContainer {
 public:
  virtual ~OleContainer() = default;
  // A stream, whole; nothing when it is missing, larger than `limit` or cannot be read.
  virtual std::optional<std::vector<std::uint8_t>> stream(const char* name, std::size_t limit) = 0;
  // The summary information's non-empty texts and dates; dates of 0 ("none") are left out.
  virtual std::vector<OleSummaryEntry> summary() = 0;
};

// What the summary information says of a document, each the first of its kind; the keywords as
// written, one text.
struct OleSummary {
  std::optional<std::string> title, subject, description, author, keywords;
  std::optional<Date> creation, modification;
};
OleSummary summaryOf(OleContainer& container);

// The container over bytes that outlive it, or nothing with the reason in `error` (the module's
// loading failed, or the bytes are no container).
std::unique_ptr<OleContainer> openOleContainer(const std::uint8_t* bytes, std::size_t size,
                                               std::string& error);

// The module's entry point, resolved by name.
using OpenOleContainerFunction = OleContainer* (*)(const std::uint8_t* bytes, std::size_t size,
                                                   std::string* error);
inline constexpr const char* kOpenOleContainerSymbol = "ulvek_open_ole_container";
// The module's file, under lib/ulvekbot of the installation (or build tree) of the program.
inline constexpr const char* kOleModuleName = "ulvek-ole.so";

}  // namespace ulvek
