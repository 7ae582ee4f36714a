#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/text_string.h"

namespace ulvek {

// A point in time, microseconds since 1970-01-01 UTC.
struct Date {
  std::int64_t microseconds = 0;
  auto operator<=>(const Date&) const = default;
};

using Data = std::vector<std::uint8_t>;

class PropertyValue;
using PropertyArray = std::vector<PropertyValue>;
// Keys are UTF-8 (attribute names, Spotlight attribute names, property-list keys).
using PropertyDictionary = std::map<std::string, PropertyValue, std::less<>>;

// A property-list value: string, integer, real, Boolean, date, data, array or dictionary.
class PropertyValue {
 public:
  enum class Kind { String, Integer, Unsigned, Real, Boolean, Date, Data, Array, Dictionary };

  PropertyValue() : storage_(TextString()) {}
  PropertyValue(TextString value) : storage_(std::move(value)) {}
  PropertyValue(TextView value) : storage_(TextString(value)) {}
  PropertyValue(const char16_t* value) : storage_(TextString(value)) {}
  PropertyValue(std::int64_t value) : storage_(value) {}
  PropertyValue(int value) : storage_(std::int64_t{value}) {}
  PropertyValue(std::uint64_t value) : storage_(value) {}
  PropertyValue(double value) : storage_(value) {}
  PropertyValue(bool value) : storage_(value) {}
  PropertyValue(Date value) : storage_(value) {}
  PropertyValue(Data value) : storage_(std::move(value)) {}
  PropertyValue(PropertyArray value) : storage_(std::move(value)) {}
  PropertyValue(PropertyDictionary value) : storage_(std::move(value)) {}

  static PropertyValue fromUtf8(std::string_view utf8);

  Kind kind() const { return static_cast<Kind>(storage_.index()); }
  // Name of the value's class, as log lines such as "Invalid array: %@" show it.
  std::string_view className() const;

  bool isString() const { return kind() == Kind::String; }
  bool isArray() const { return kind() == Kind::Array; }
  bool isData() const { return kind() == Kind::Data; }
  bool isDate() const { return kind() == Kind::Date; }
  bool isDictionary() const { return kind() == Kind::Dictionary; }
  // Signed, unsigned, real and Boolean values are numbers.
  bool isNumber() const;

  // Each accessor answers null when the value is of another kind.
  const TextString* string() const { return std::get_if<TextString>(&storage_); }
  const std::int64_t* integer() const { return std::get_if<std::int64_t>(&storage_); }
  const std::uint64_t* unsignedInteger() const { return std::get_if<std::uint64_t>(&storage_); }
  const double* real() const { return std::get_if<double>(&storage_); }
  const bool* boolean() const { return std::get_if<bool>(&storage_); }
  const Date* date() const { return std::get_if<Date>(&storage_); }
  const Data* data() const { return std::get_if<Data>(&storage_); }
  const PropertyArray* array() const { return std::get_if<PropertyArray>(&storage_); }
  const PropertyDictionary* dictionary() const {
    return std::get_if<PropertyDictionary>(&storage_);
  }
  PropertyArray* array() { return std::get_if<PropertyArray>(&storage_); }
  PropertyDictionary* dictionary() { return std::get_if<PropertyDictionary>(&storage_); }

  bool operator==(const PropertyValue& other) const { return storage_ == other.storage_; }

 private:
  std::variant<TextString, std::int64_t, std::uint64_t, double, bool, Date, Data, PropertyArray,
               PropertyDictionary>
      storage_;
};

// Looks a key up in a dictionary; null when absent.
const PropertyValue* find(const PropertyDictionary& dictionary, std::string_view key);

}  // namespace ulvek
