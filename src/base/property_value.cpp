#include "base/property_value.h"

namespace ulvek {

PropertyValue PropertyValue::fromUtf8(std::string_view utf8) {
  return PropertyValue(ulvek::fromUtf8(utf8));
}

std::string_view PropertyValue::className() const {
  switch (kind()) {
    case Kind::String:
      return "String";
    case Kind::Integer:
    case Kind::Unsigned:
    case Kind::Real:
      return "Number";
    case Kind::Boolean:
      return "Boolean";
    case Kind::Date:
      return "Date";
    case Kind::Data:
      return "Data";
    case Kind::Array:
      return "Array";
    case Kind::Dictionary:
      return "Dictionary";
  }
  return "Unknown";
}

bool PropertyValue::isNumber() const {
  switch (kind()) {
    case Kind::Integer:
    case Kind::Unsigned:
    case Kind::Real:
    case Kind::Boolean:
      return true;
    default:
      return false;
  }
}

const PropertyValue* find(const PropertyDictionary& dictionary, std::string_view key) {
  auto it = dictionary.find(key);
  return it == dictionary.end() ? nullptr : &it->second;
}

}  // namespace ulvek
