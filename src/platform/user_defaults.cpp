#include "platform/user_defaults.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "base/property_list.h"

namespace ulvek {

std::string userDefaultsPath() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  std::string base;
  if (config && *config) {
    base = config;
  } else {
    const char* home = std::getenv("HOME");
    base = std::string(home ? home : "") + "/.config";
  }
  return base + "/ulvekbot/defaults.plist";
}

std::optional<PropertyValue> userDefault(std::string_view key) {
  std::ifstream in(userDefaultsPath(), std::ios::binary);
  if (!in) return std::nullopt;
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  auto root = propertyListFromBytes(
      std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
  if (!root || !root->dictionary()) return std::nullopt;
  const PropertyValue* value = find(*root->dictionary(), key);
  if (!value) return std::nullopt;
  return *value;
}

bool userDefaultIsTrue(std::string_view key) {
  auto value = userDefault(key);
  if (!value) return false;
  if (const bool* flag = value->boolean()) return *flag;
  if (const std::int64_t* number = value->integer()) return *number != 0;
  if (const double* number = value->real()) return *number != 0;
  if (const TextString* text = value->string())
    return *text == u"YES" || *text == u"true" || *text == u"1" || *text == u"yes";
  return false;
}

}  // namespace ulvek
