#include "base/property_list.h"

#include <plist/plist.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <vector>

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

std::uint64_t readBigEndian(const std::uint8_t* bytes, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = (value << 8) | bytes[i];
  return value;
}

// libplist parses nested containers recursively, so a hostile list nested deep enough overflows
// the stack; it also aborts the process on a dictionary key holding a NUL unit. These checks find
// both before libplist sees the bytes; anything else malformed is left to libplist's own checks.

// Walks the objects reachable from a binary list's top object without recursion.
class BinaryListCheck {
 public:
  explicit BinaryListCheck(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  bool safe() {
    constexpr std::size_t kTrailerSize = 32;
    if (bytes_.size() < 8 + kTrailerSize) return true;
    const std::uint8_t* trailer = bytes_.data() + bytes_.size() - kTrailerSize;
    offsetSize_ = trailer[6];
    refSize_ = trailer[7];
    objectCount_ = readBigEndian(trailer + 8, 8);
    const std::uint64_t top = readBigEndian(trailer + 16, 8);
    tableOffset_ = readBigEndian(trailer + 24, 8);
    end_ = bytes_.size() - kTrailerSize;
    if (offsetSize_ == 0 || offsetSize_ > 8 || refSize_ == 0 || refSize_ > 8) return true;
    if (tableOffset_ > end_ || objectCount_ > (end_ - tableOffset_) / offsetSize_) return true;
    if (top >= objectCount_) return true;
    return walk(top);
  }

 private:
  enum : std::uint8_t { kUnseen, kOpen, kDone };
  struct Frame {
    std::uint64_t index;
    std::size_t refs;        // where the references start
    std::uint64_t refCount;  // keys and values for a dictionary
    std::uint64_t next = 0;
    std::uint64_t keyCount = 0;  // the first keyCount references of a dictionary are its keys
  };

  bool walk(std::uint64_t top) {
    state_.assign(objectCount_, kUnseen);
    std::vector<Frame> stack;
    if (!enter(top, stack)) return false;
    while (!stack.empty()) {
      Frame& frame = stack.back();
      if (frame.next == frame.refCount) {
        state_[frame.index] = kDone;
        stack.pop_back();
        continue;
      }
      const bool isKey = frame.next < frame.keyCount;
      const std::uint64_t child =
          readBigEndian(bytes_.data() + frame.refs + frame.next * refSize_, refSize_);
      ++frame.next;
      if (child >= objectCount_) continue;
      auto offset = objectOffset(child);
      if (!offset) continue;
      if (isKey && stringHasNul(*offset)) return false;
      if (state_[child] == kOpen) return false;  // a cycle
      if (state_[child] == kDone) continue;      // shared subtrees were measured on first sight
      if (!enter(child, stack)) return false;
    }
    return true;
  }

  // Pushes a container; marks anything else done. False when nesting gets too deep.
  bool enter(std::uint64_t index, std::vector<Frame>& stack) {
    auto offset = objectOffset(index);
    const unsigned type = offset ? bytes_[*offset] >> 4 : 0;
    if (type != 0xA && type != 0xB && type != 0xC && type != 0xD) {
      state_[index] = kDone;
      return true;
    }
    if (stack.size() >= static_cast<std::size_t>(kMaxPropertyListDepth)) return false;
    std::uint64_t count = 0;
    std::size_t start = 0;
    if (!countAt(*offset, count, start)) {
      state_[index] = kDone;
      return true;
    }
    const std::uint64_t refCount = type == 0xD ? count * 2 : count;
    if (count > (end_ - start) / refSize_ || refCount > (end_ - start) / refSize_) {
      state_[index] = kDone;
      return true;
    }
    state_[index] = kOpen;
    stack.push_back({index, start, refCount, 0, type == 0xD ? count : 0});
    return true;
  }

  std::optional<std::size_t> objectOffset(std::uint64_t index) const {
    std::uint64_t offset =
        readBigEndian(bytes_.data() + tableOffset_ + index * offsetSize_, offsetSize_);
    if (offset >= end_) return std::nullopt;
    return static_cast<std::size_t>(offset);
  }

  // Count of an object's elements and where they start, following the 0xF extended form.
  bool countAt(std::size_t offset, std::uint64_t& count, std::size_t& start) const {
    count = bytes_[offset] & 0x0F;
    start = offset + 1;
    if (count != 0x0F) return true;
    if (start >= end_ || (bytes_[start] & 0xF0) != 0x10) return false;
    const std::size_t size = std::size_t{1} << (bytes_[start] & 0x03);
    if (start + 1 + size > end_) return false;
    count = readBigEndian(bytes_.data() + start + 1, size);
    start += 1 + size;
    return true;
  }

  bool stringHasNul(std::size_t offset) const {
    const unsigned type = bytes_[offset] >> 4;
    if (type != 0x5 && type != 0x6 && type != 0x7) return false;
    std::uint64_t count = 0;
    std::size_t start = 0;
    if (!countAt(offset, count, start)) return false;
    const std::uint64_t unitSize = type == 0x6 ? 2 : 1;
    if (count > (end_ - start) / unitSize) return false;
    for (std::uint64_t i = 0; i < count; ++i) {
      const std::uint8_t* unit = bytes_.data() + start + i * unitSize;
      if (unit[0] == 0 && (unitSize == 1 || unit[1] == 0)) return true;
    }
    return false;
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t refSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t tableOffset_ = 0;
  std::size_t end_ = 0;
  std::vector<std::uint8_t> state_;
};

bool startsWithName(std::span<const std::uint8_t> bytes, std::size_t at, std::string_view name) {
  if (bytes.size() - at < name.size() + 1) return false;
  if (std::memcmp(bytes.data() + at, name.data(), name.size()) != 0) return false;
  const std::uint8_t after = bytes[at + name.size()];
  return after == '>' || after == '/' || after == ' ' || after == '\t' || after == '\n' ||
         after == '\r';
}

// Counts open array and dict elements as a tag scan would; comments only make it count more.
bool xmlListIsShallow(std::span<const std::uint8_t> bytes) {
  int depth = 0;
  const std::size_t n = bytes.size();
  for (std::size_t i = 0; i + 1 < n; ++i) {
    if (bytes[i] != '<') continue;
    if (bytes[i + 1] == '/') {
      if (startsWithName(bytes, i + 2, "array") || startsWithName(bytes, i + 2, "dict")) --depth;
      continue;
    }
    if (!startsWithName(bytes, i + 1, "array") && !startsWithName(bytes, i + 1, "dict")) continue;
    const void* close = std::memchr(bytes.data() + i, '>', n - i);
    if (!close) break;
    const std::size_t gt = static_cast<const std::uint8_t*>(close) - bytes.data();
    if (bytes[gt - 1] != '/' && ++depth > kMaxPropertyListDepth) return false;
    i = gt;
  }
  return true;
}

}  // namespace

bool propertyListBytesAreSafe(std::span<const std::uint8_t> bytes) {
  if (bytes.size() >= 6 && std::memcmp(bytes.data(), "bplist", 6) == 0)
    return BinaryListCheck(bytes).safe();
  return xmlListIsShallow(bytes);
}

std::optional<PropertyValue> propertyListFromBytes(std::span<const std::uint8_t> bytes) {
  if (bytes.empty() || bytes.size() > std::numeric_limits<uint32_t>::max()) return std::nullopt;
  if (!propertyListBytesAreSafe(bytes)) return std::nullopt;
  plist_t root = nullptr;
  plist_from_memory(reinterpret_cast<const char*>(bytes.data()),
                    static_cast<uint32_t>(bytes.size()), &root);
  PlistPtr owner(root);
  if (root) return toValue(root, 0);
  // libplist reads binary and XML lists only.
  return openStepPropertyListFromBytes(bytes);
}

std::optional<Data> binaryPropertyList(const PropertyValue& value, std::string* errorMessage) {
  PlistPtr root(toNode(value, 0, errorMessage));
  if (!root) return std::nullopt;
  char* bytes = nullptr;
  uint32_t length = 0;
  plist_to_bin(root.get(), &bytes, &length);
  if (!bytes) {
    if (errorMessage) *errorMessage = "The value could not be serialized";
    return std::nullopt;
  }
  Data out(reinterpret_cast<std::uint8_t*>(bytes), reinterpret_cast<std::uint8_t*>(bytes) + length);
  plist_to_bin_free(bytes);
  return out;
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
