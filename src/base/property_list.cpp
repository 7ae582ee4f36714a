#include "base/property_list.h"

#include <expat.h>
#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <type_traits>
#include <vector>

#include "base/binary_property_list.h"
#include "base/log.h"
#include "base/openstep_property_list.h"

namespace ulvek {
namespace {

// Property-list dates count from 2001-01-01 UTC.
constexpr std::int64_t kReferenceDateOffsetSeconds = 978307200;

struct PlistDeleter {
  void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

std::optional<PropertyValue> toValue(plist_t node, int depth) {
  if (!node || depth > kMaxPropertyListDepth) return std::nullopt;
  switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
      uint8_t value = 0;
      plist_get_bool_val(node, &value);
      return PropertyValue(value != 0);
    }
    case PLIST_UINT: {
      uint64_t value = 0;
      plist_get_uint_val(node, &value);
      // The binary format's 8-byte integers are signed.
      return PropertyValue(static_cast<std::int64_t>(value));
    }
    case PLIST_REAL: {
      double value = 0;
      plist_get_real_val(node, &value);
      return PropertyValue(value);
    }
    case PLIST_STRING: {
      uint64_t length = 0;
      const char* text = plist_get_string_ptr(node, &length);
      return PropertyValue::fromUtf8(std::string_view(text ? text : "", text ? length : 0));
    }
    case PLIST_DATA: {
      uint64_t length = 0;
      const char* bytes = plist_get_data_ptr(node, &length);
      const auto* begin = reinterpret_cast<const std::uint8_t*>(bytes);
      return PropertyValue(bytes ? Data(begin, begin + length) : Data());
    }
    case PLIST_DATE: {
      int32_t seconds = 0, micros = 0;
      plist_get_date_val(node, &seconds, &micros);
      std::int64_t total = (std::int64_t{seconds} + kReferenceDateOffsetSeconds) * 1000000 + micros;
      return PropertyValue(Date{total});
    }
    case PLIST_ARRAY: {
      PropertyArray array;
      uint32_t count = plist_array_get_size(node);
      array.reserve(count);
      for (uint32_t i = 0; i < count; ++i) {
        auto element = toValue(plist_array_get_item(node, i), depth + 1);
        if (!element) return std::nullopt;
        array.push_back(std::move(*element));
      }
      return PropertyValue(std::move(array));
    }
    case PLIST_DICT: {
      PropertyDictionary dictionary;
      plist_dict_iter iter = nullptr;
      plist_dict_new_iter(node, &iter);
      if (!iter) return PropertyValue(std::move(dictionary));
      for (;;) {
        char* key = nullptr;
        plist_t item = nullptr;
        plist_dict_next_item(node, iter, &key, &item);
        if (!item) {
          std::free(key);
          break;
        }
        auto element = toValue(item, depth + 1);
        std::string name = key ? key : "";
        // Keys from a damaged list may not be UTF-8; every key we hand on is.
        if (TextString checked; !fromUtf8Strict(name, checked)) name = toUtf8(fromUtf8(name));
        std::free(key);
        if (!element) {
          std::free(iter);
          return std::nullopt;
        }
        dictionary.insert_or_assign(std::move(name), std::move(*element));
      }
      std::free(iter);
      return PropertyValue(std::move(dictionary));
    }
    case PLIST_UID: {
      uint64_t value = 0;
      plist_get_uid_val(node, &value);
      return PropertyValue(value);
    }
    default:
      return std::nullopt;
  }
}

plist_t toNode(const PropertyValue& value, int depth, std::string* errorMessage) {
  if (depth > kMaxPropertyListDepth) {
    if (errorMessage) *errorMessage = "Property list nesting is too deep";
    return nullptr;
  }
  switch (value.kind()) {
    case PropertyValue::Kind::String: {
      std::string utf8;
      if (!toUtf8Strict(*value.string(), utf8)) {
        if (errorMessage) *errorMessage = "String is not valid Unicode";
        return nullptr;
      }
      if (utf8.find('\0') != std::string::npos) {
        if (errorMessage) *errorMessage = "String contains a NUL character";
        return nullptr;
      }
      return plist_new_string(utf8.c_str());
    }
    case PropertyValue::Kind::Integer:
      return plist_new_uint(static_cast<uint64_t>(*value.integer()));
    case PropertyValue::Kind::Unsigned:
      return plist_new_uint(*value.unsignedInteger());
    case PropertyValue::Kind::Real: {
      return plist_new_real(*value.real());
    }
    case PropertyValue::Kind::Boolean:
      return plist_new_bool(*value.boolean() ? 1 : 0);
    case PropertyValue::Kind::Date: {
      std::int64_t micros = value.date()->microseconds - kReferenceDateOffsetSeconds * 1000000;
      std::int64_t seconds = micros / 1000000;
      std::int64_t rest = micros % 1000000;
      if (rest < 0) {
        rest += 1000000;
        seconds -= 1;
      }
      if (seconds < std::numeric_limits<int32_t>::min() ||
          seconds > std::numeric_limits<int32_t>::max()) {
        if (errorMessage) *errorMessage = "Date is out of range";
        return nullptr;
      }
      return plist_new_date(static_cast<int32_t>(seconds), static_cast<int32_t>(rest));
    }
    case PropertyValue::Kind::Data: {
      const Data& data = *value.data();
      return plist_new_data(reinterpret_cast<const char*>(data.data()), data.size());
    }
    case PropertyValue::Kind::Array: {
      plist_t array = plist_new_array();
      for (const PropertyValue& element : *value.array()) {
        plist_t child = toNode(element, depth + 1, errorMessage);
        if (!child) {
          plist_free(array);
          return nullptr;
        }
        plist_array_append_item(array, child);
      }
      return array;
    }
    case PropertyValue::Kind::Dictionary: {
      plist_t dictionary = plist_new_dict();
      for (const auto& [key, element] : *value.dictionary()) {
        plist_t child = toNode(element, depth + 1, errorMessage);
        if (!child) {
          plist_free(dictionary);
          return nullptr;
        }
        plist_dict_set_item(dictionary, key.c_str(), child);
      }
      return dictionary;
    }
  }
  return nullptr;
}

// libplist parses and frees nested containers recursively, so a hostile XML list nested deep
// enough overflows the stack; such lists are refused before libplist sees them. The depth is
// counted by an XML parser, so markup inside comments, CDATA sections and processing
// instructions counts for nothing.

struct DepthCount {
  XML_Parser parser = nullptr;
  int depth = 0;
  bool tooDeep = false;
};

void XMLCALL openElement(void* data, const XML_Char*, const XML_Char**) {
  auto* count = static_cast<DepthCount*>(data);
  // The root <plist> element holds the list; it is not a level of its own.
  if (++count->depth > kMaxPropertyListDepth + 1) {
    count->tooDeep = true;
    XML_StopParser(count->parser, XML_FALSE);
  }
}

void XMLCALL closeElement(void* data, const XML_Char*) { --static_cast<DepthCount*>(data)->depth; }

// Where the XML parser gives up (OpenStep text, a damaged list) libplist may still read on, so
// the open containers are counted with no closing tag subtracting from them.
bool fewContainerTags(std::span<const std::uint8_t> bytes) {
  static constexpr std::string_view kOpenings[] = {"<array", "<dict"};
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  int opened = 0;
  for (std::string_view opening : kOpenings) {
    for (std::size_t at = text.find(opening); at != std::string_view::npos;
         at = text.find(opening, at + 1)) {
      if (++opened > kMaxPropertyListDepth) return false;
    }
  }
  return true;
}

bool xmlListIsShallow(std::span<const std::uint8_t> bytes) {
  std::unique_ptr<std::remove_pointer_t<XML_Parser>, decltype(&XML_ParserFree)> parser(
      XML_ParserCreate(nullptr), &XML_ParserFree);
  if (!parser) return false;
  DepthCount count{parser.get()};
  XML_SetUserData(parser.get(), &count);
  XML_SetElementHandler(parser.get(), openElement, closeElement);
  const auto* data = reinterpret_cast<const char*>(bytes.data());
  constexpr std::size_t kChunk = 1 << 20;
  for (std::size_t at = 0; at < bytes.size(); at += kChunk) {
    const std::size_t length = std::min(kChunk, bytes.size() - at);
    const bool last = at + length == bytes.size();
    if (XML_Parse(parser.get(), data + at, static_cast<int>(length), last) != XML_STATUS_OK) {
      if (count.tooDeep) return false;
      return fewContainerTags(bytes);
    }
  }
  return !count.tooDeep;
}

bool startsWithBinaryMagic(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 6 && std::memcmp(bytes.data(), "bplist", 6) == 0;
}

}  // namespace

std::optional<PropertyValue> propertyListFromBytes(std::span<const std::uint8_t> bytes,
                                                   std::string_view name) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
  if (startsWithBinaryMagic(bytes)) return readBinaryPropertyList(bytes);
  if (!xmlListIsShallow(bytes)) {
    if (!name.empty()) logLine("Property list nested too deeply: " + std::string(name));
    return std::nullopt;
  }
  plist_t root = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<uint32_t>(bytes.size()), &root);
  PlistPtr owner(root);
  if (root) return toValue(root, 0);
  // libplist reads XML lists; OpenStep text is ours.
  return openStepPropertyListFromBytes(bytes);
}

std::optional<Data> binaryPropertyList(const PropertyValue& value, std::string* errorMessage) {
  return writeBinaryPropertyList(value, errorMessage);
}

std::optional<std::string> xmlPropertyList(const PropertyValue& value) {
  PlistPtr root(toNode(value, 0, nullptr));
  if (!root) return std::nullopt;
  char* text = nullptr;
  uint32_t length = 0;
  plist_to_xml(root.get(), &text, &length);
  if (!text) return std::nullopt;
  std::string out(text, length);
  plist_to_xml_free(text);
  return out;
}

}  // namespace ulvek
