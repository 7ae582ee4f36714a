#include "protocol/dbus_values.h"

#include <cerrno>
#include <cstring>

namespace ulvek::dbus {
namespace {

bool isNoncharacter(char32_t codePoint) {
  return (codePoint >= 0xFDD0 && codePoint <= 0xFDEF) || (codePoint & 0xFFFE) == 0xFFFE;
}

bool isHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// Units that sd-bus refuses in a string. Lone surrogates are left to toUtf8, which replaces them.
bool needsReplacement(TextView text, std::size_t index, std::size_t& width) {
  char16_t unit = text[index];
  width = 1;
  if (unit == 0) return true;
  if (isHighSurrogate(unit) && index + 1 < text.size() && isLowSurrogate(text[index + 1])) {
    width = 2;
    char32_t codePoint = 0x10000 + ((char32_t(unit) - 0xD800) << 10) + (text[index + 1] - 0xDC00);
    return isNoncharacter(codePoint);
  }
  return isNoncharacter(unit);
}

int appendString(sd_bus_message* message, TextView text) {
  std::string wire = wireString(text);
  return sd_bus_message_append_basic(message, 's', wire.c_str());
}

template <typename Append>
int inContainer(sd_bus_message* message, char type, const char* contents, Append append) {
  int r = sd_bus_message_open_container(message, type, contents);
  if (r < 0) return r;
  r = append();
  if (r < 0) return r;
  return sd_bus_message_close_container(message);
}

int readString(sd_bus_message* message, char type, PropertyValue& value) {
  const char* text = nullptr;
  int r = sd_bus_message_read_basic(message, type, &text);
  if (r < 0) return r;
  value = PropertyValue::fromUtf8(text ? text : "");
  return r;
}

template <typename Wire, typename Stored>
int readNumber(sd_bus_message* message, char type, PropertyValue& value) {
  Wire number{};
  int r = sd_bus_message_read_basic(message, type, &number);
  if (r < 0) return r;
  value = PropertyValue(static_cast<Stored>(number));
  return r;
}

int readVariantContents(sd_bus_message* message, std::string_view signature, PropertyValue& value) {
  if (signature.size() == 1) {
    switch (signature[0]) {
      case 's':
      case 'o':
      case 'g':
        return readString(message, signature[0], value);
      case 'x':
        return readNumber<std::int64_t, std::int64_t>(message, 'x', value);
      case 'i':
        return readNumber<std::int32_t, std::int64_t>(message, 'i', value);
      case 'n':
        return readNumber<std::int16_t, std::int64_t>(message, 'n', value);
      case 't':
        return readNumber<std::uint64_t, std::uint64_t>(message, 't', value);
      case 'u':
        return readNumber<std::uint32_t, std::uint64_t>(message, 'u', value);
      case 'q':
        return readNumber<std::uint16_t, std::uint64_t>(message, 'q', value);
      case 'y':
        return readNumber<std::uint8_t, std::uint64_t>(message, 'y', value);
      case 'd':
        return readNumber<double, double>(message, 'd', value);
      case 'b': {
        int flag = 0;  // sd-bus reads Booleans as int
        int r = sd_bus_message_read_basic(message, 'b', &flag);
        if (r >= 0) value = PropertyValue(flag != 0);
        return r;
      }
      default:
        return -EBADMSG;
    }
  }
  if (signature == "(x)") {
    std::int64_t microseconds = 0;
    int r = sd_bus_message_read(message, "(x)", &microseconds);
    if (r >= 0) value = PropertyValue(Date{microseconds});
    return r;
  }
  if (signature == "ay") {
    const void* bytes = nullptr;
    std::size_t size = 0;
    int r = sd_bus_message_read_array(message, 'y', &bytes, &size);
    if (r < 0) return r;
    const auto* begin = static_cast<const std::uint8_t*>(bytes);
    value = PropertyValue(Data(begin, begin + size));
    return r;
  }
  if (signature == "av") {
    int r = sd_bus_message_enter_container(message, 'a', "v");
    if (r < 0) return r;
    PropertyArray array;
    while ((r = sd_bus_message_at_end(message, false)) == 0) {
      PropertyValue element;
      if ((r = readVariant(message, element)) < 0) return r;
      array.push_back(std::move(element));
    }
    if (r < 0) return r;
    if ((r = sd_bus_message_exit_container(message)) < 0) return r;
    value = PropertyValue(std::move(array));
    return r;
  }
  if (signature == kDictionarySignature) {
    PropertyDictionary dictionary;
    int r = readDictionary(message, dictionary);
    if (r >= 0) value = PropertyValue(std::move(dictionary));
    return r;
  }
  return -EBADMSG;
}

}  // namespace

std::string wireString(TextView text) {
  std::size_t width = 1;
  std::size_t index = 0;
  while (index < text.size() && !needsReplacement(text, index, width)) index += width;
  if (index == text.size()) return toUtf8(text);

  TextString clean(text.substr(0, index));
  clean.reserve(text.size());
  for (; index < text.size(); index += width) {
    if (needsReplacement(text, index, width)) {
      clean += u'\uFFFD';
    } else {
      clean.append(text.substr(index, width));
    }
  }
  return toUtf8(clean);
}

std::string wireString(std::string_view utf8) { return wireString(fromUtf8(utf8)); }

int appendVariant(sd_bus_message* message, const PropertyValue& value) {
  using Kind = PropertyValue::Kind;
  switch (value.kind()) {
    case Kind::String:
      return inContainer(message, 'v', "s", [&] { return appendString(message, *value.string()); });
    case Kind::Integer:
      return sd_bus_message_append(message, "v", "x", *value.integer());
    case Kind::Unsigned:
      return sd_bus_message_append(message, "v", "t", *value.unsignedInteger());
    case Kind::Real:
      return sd_bus_message_append(message, "v", "d", *value.real());
    case Kind::Boolean:
      return sd_bus_message_append(message, "v", "b", int{*value.boolean()});
    case Kind::Date:
      return sd_bus_message_append(message, "v", "(x)", value.date()->microseconds);
    case Kind::Data:
      return inContainer(message, 'v', "ay", [&] {
        const Data& data = *value.data();
        return sd_bus_message_append_array(message, 'y', data.data(), data.size());
      });
    case Kind::Array:
      return inContainer(message, 'v', "av", [&] {
        return inContainer(message, 'a', "v", [&] {
          for (const PropertyValue& element : *value.array()) {
            if (int r = appendVariant(message, element); r < 0) return r;
          }
          return 0;
        });
      });
    case Kind::Dictionary:
      return inContainer(message, 'v', kDictionarySignature,
                         [&] { return appendDictionary(message, *value.dictionary()); });
  }
  return -EINVAL;
}

int appendDictionary(sd_bus_message* message, const PropertyDictionary& dictionary) {
  return inContainer(message, 'a', "{sv}", [&] {
    for (const auto& entry : dictionary) {
      // Plain references: clang 14 cannot capture structured bindings in lambdas.
      const std::string& key = entry.first;
      const PropertyValue& value = entry.second;
      int r = inContainer(message, 'e', "sv", [&] {
        std::string wireKey = wireString(std::string_view(key));
        int r = sd_bus_message_append_basic(message, 's', wireKey.c_str());
        return r < 0 ? r : appendVariant(message, value);
      });
      if (r < 0) return r;
    }
    return 0;
  });
}

int appendResult(sd_bus_message* message, const ImportResult& result) {
  return appendDictionary(message, result.values());
}

int readVariant(sd_bus_message* message, PropertyValue& value) {
  char type = 0;
  const char* contents = nullptr;
  int r = sd_bus_message_peek_type(message, &type, &contents);
  if (r < 0) return r;
  if (r == 0 || type != 'v' || !contents) return -EBADMSG;
  std::string signature(contents);  // the peeked text lives only until the next read
  if ((r = sd_bus_message_enter_container(message, 'v', signature.c_str())) < 0) return r;
  if ((r = readVariantContents(message, signature, value)) < 0) return r;
  return sd_bus_message_exit_container(message);
}

int readDictionary(sd_bus_message* message, PropertyDictionary& dictionary) {
  dictionary.clear();
  int r = sd_bus_message_enter_container(message, 'a', "{sv}");
  if (r < 0) return r;
  if (r == 0) return -EBADMSG;
  while ((r = sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
    const char* key = nullptr;
    if ((r = sd_bus_message_read_basic(message, 's', &key)) < 0) return r;
    PropertyValue value;
    if ((r = readVariant(message, value)) < 0) return r;
    if ((r = sd_bus_message_exit_container(message)) < 0) return r;
    dictionary.insert_or_assign(std::string(key ? key : ""), std::move(value));
  }
  if (r < 0) return r;
  return sd_bus_message_exit_container(message);
}

int readResult(sd_bus_message* message, ImportResult& result) {
  PropertyDictionary values;
  int r = readDictionary(message, values);
  if (r >= 0) result = ImportResult::fromValues(std::move(values));
  return r;
}

}  // namespace ulvek::dbus
