#include "base/binary_property_list.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <vector>

#include "base/property_list.h"
#include "base/text_string.h"

namespace ulvek {

namespace {

constexpr std::string_view kMagic = "bplist00";
constexpr std::size_t kTrailerSize = 32;
// Property-list dates count seconds from 2001-01-01 UTC.
constexpr std::int64_t kReferenceDateOffsetMicroseconds = 978307200'000000;
// Shared objects are copied once per reference; these bound what a small hostile file can
// expand to.
constexpr std::uint64_t kMaxValues = 4'000'000;
constexpr std::uint64_t kMaxPayloadBytes = 512ull << 20;

std::uint64_t readBigEndian(const std::uint8_t* bytes, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value = (value << 8) | bytes[i];
  return value;
}

double readDouble(const std::uint8_t* bytes, std::size_t size) {
  if (size == 4) return std::bit_cast<float>(static_cast<std::uint32_t>(readBigEndian(bytes, 4)));
  return std::bit_cast<double>(readBigEndian(bytes, 8));
}

class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::optional<PropertyValue> read() {
    if (bytes_.size() < kMagic.size() + kTrailerSize ||
        std::memcmp(bytes_.data(), kMagic.data(), kMagic.size()) != 0)
      return std::nullopt;
    const std::uint8_t* trailer = bytes_.data() + bytes_.size() - kTrailerSize;
    offsetSize_ = trailer[6];
    refSize_ = trailer[7];
    objectCount_ = readBigEndian(trailer + 8, 8);
    const std::uint64_t top = readBigEndian(trailer + 16, 8);
    tableOffset_ = readBigEndian(trailer + 24, 8);
    end_ = bytes_.size() - kTrailerSize;
    if (offsetSize_ == 0 || offsetSize_ > 8 || refSize_ == 0 || refSize_ > 8) return std::nullopt;
    if (tableOffset_ < kMagic.size() || tableOffset_ > end_ || objectCount_ == 0 ||
        objectCount_ > (end_ - tableOffset_) / offsetSize_ || top >= objectCount_)
      return std::nullopt;
    open_.assign(objectCount_, false);
    return object(top, 0);
  }

 private:
  std::optional<std::size_t> offsetOf(std::uint64_t index) const {
    std::uint64_t offset =
        readBigEndian(bytes_.data() + tableOffset_ + index * offsetSize_, offsetSize_);
    if (offset < kMagic.size() || offset >= end_) return std::nullopt;
    return static_cast<std::size_t>(offset);
  }

  // An object's element count (the low nibble, or an integer object after it when that is 0xF)
  // and where its contents start.
  bool countAt(std::size_t offset, std::uint64_t& count, std::size_t& start) const {
    count = bytes_[offset] & 0x0F;
    start = offset + 1;
    if (count != 0x0F) return true;
    if (start >= end_ || (bytes_[start] >> 4) != 0x1) return false;
    const std::size_t size = std::size_t{1} << (bytes_[start] & 0x0F);
    if (size > 8 || size > end_ - start - 1) return false;
    count = readBigEndian(bytes_.data() + start + 1, size);
    start += 1 + size;
    return true;
  }

  // Whether `count` items of `size` bytes fit between `start` and the trailer.
  bool fits(std::size_t start, std::uint64_t count, std::uint64_t size) const {
    return start <= end_ && count <= (end_ - start) / size;
  }

  bool spend(std::uint64_t payload) {
    if (++values_ > kMaxValues || payload > kMaxPayloadBytes - payload_) return false;
    payload_ += payload;
    return true;
  }

  std::optional<PropertyValue> object(std::uint64_t index, int depth) {
    if (index >= objectCount_ || depth > kMaxPropertyListDepth || open_[index]) return std::nullopt;
    std::optional<std::size_t> offset = offsetOf(index);
    if (!offset) return std::nullopt;
    const std::uint8_t marker = bytes_[*offset];
    const std::uint8_t low = marker & 0x0F;
    const std::uint8_t* after = bytes_.data() + *offset + 1;
    const std::size_t room = end_ - *offset - 1;
    if (!spend(0)) return std::nullopt;
    switch (marker >> 4) {
      case 0x0:
        if (marker == 0x08 || marker == 0x09) return PropertyValue(marker == 0x09);
        return std::nullopt;
      case 0x1: {
        const std::size_t size = std::size_t{1} << low;
        if (size > 16 || size > room) return std::nullopt;
        if (size == 16) {
          // 16-byte integers: unsigned values above the signed range, or sign-extended ones.
          const std::uint64_t high = readBigEndian(after, 8), value = readBigEndian(after + 8, 8);
          if (high == 0) {
            if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
              return PropertyValue(value);
            return PropertyValue(static_cast<std::int64_t>(value));
          }
          if (high == ~std::uint64_t{0} && (value >> 63) != 0)
            return PropertyValue(static_cast<std::int64_t>(value));
          return std::nullopt;
        }
        const std::uint64_t value = readBigEndian(after, size);
        // One to four bytes are unsigned, eight are signed.
        return PropertyValue(static_cast<std::int64_t>(value));
      }
      case 0x2: {
        const std::size_t size = std::size_t{1} << low;
        if ((size != 4 && size != 8) || size > room) return std::nullopt;
        return PropertyValue(readDouble(after, size));
      }
      case 0x3: {
        if (marker != 0x33 || room < 8) return std::nullopt;
        const double micros = std::round(readDouble(after, 8) * 1e6);
        if (!std::isfinite(micros) || std::fabs(micros) > 9e18) return std::nullopt;
        return PropertyValue(
            Date{static_cast<std::int64_t>(micros) + kReferenceDateOffsetMicroseconds});
      }
      case 0x4:
      case 0x5:
      case 0x6:
      case 0x7: {
        std::uint64_t count = 0;
        std::size_t start = 0;
        const std::uint64_t unit = (marker >> 4) == 0x6 ? 2 : 1;
        if (!countAt(*offset, count, start) || !fits(start, count, unit) || !spend(count * unit))
          return std::nullopt;
        const std::uint8_t* contents = bytes_.data() + start;
        switch (marker >> 4) {
          case 0x4:
            return PropertyValue(Data(contents, contents + count));
          case 0x5:
            // ASCII; stray high bytes are kept as Latin-1 rather than refused.
            return PropertyValue(TextString(contents, contents + count));
          case 0x6: {
            TextString text(count, u'\0');
            for (std::uint64_t i = 0; i < count; ++i)
              text[i] = static_cast<char16_t>(contents[2 * i] << 8 | contents[2 * i + 1]);
            return PropertyValue(std::move(text));
          }
          default:
            return PropertyValue::fromUtf8(
                std::string_view(reinterpret_cast<const char*>(contents), count));
        }
      }
      case 0x8: {
        // A keyed archiver's object reference.
        const std::size_t size = std::size_t{low} + 1;
        if (size > 8 || size > room) return std::nullopt;
        return PropertyValue(readBigEndian(after, size));
      }
      case 0xA:
      case 0xC:
      case 0xD:
        return container(index, *offset, depth);
      default:
        return std::nullopt;
    }
  }

  // Arrays, sets (read as arrays) and dictionaries (keys first, then values).
  std::optional<PropertyValue> container(std::uint64_t index, std::size_t offset, int depth) {
    const bool dictionary = (bytes_[offset] >> 4) == 0xD;
    std::uint64_t count = 0;
    std::size_t start = 0;
    if (!countAt(offset, count, start) || !fits(start, dictionary ? 2 * count : count, refSize_))
      return std::nullopt;
    auto ref = [&](std::uint64_t i) {
      return readBigEndian(bytes_.data() + start + i * refSize_, refSize_);
    };
    open_[index] = true;
    std::optional<PropertyValue> result;
    if (dictionary) {
      PropertyDictionary entries;
      std::uint64_t i = 0;
      for (; i < count; ++i) {
        std::optional<PropertyValue> key = object(ref(i), depth + 1);
        if (!key || !key->string()) break;
        std::optional<PropertyValue> value = object(ref(count + i), depth + 1);
        if (!value) break;
        entries.insert_or_assign(toUtf8(*key->string()), std::move(*value));
      }
      if (i == count) result = PropertyValue(std::move(entries));
    } else {
      PropertyArray items;
      items.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(count, 4096)));
      std::uint64_t i = 0;
      for (; i < count; ++i) {
        std::optional<PropertyValue> item = object(ref(i), depth + 1);
        if (!item) break;
        items.push_back(std::move(*item));
      }
      if (i == count) result = PropertyValue(std::move(items));
    }
    open_[index] = false;
    return result;
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t offsetSize_ = 0;
  std::size_t refSize_ = 0;
  std::uint64_t objectCount_ = 0;
  std::uint64_t tableOffset_ = 0;
  std::size_t end_ = 0;
  std::vector<bool> open_;  // objects being read: meeting one again is a cycle
  std::uint64_t values_ = 0;
  std::uint64_t payload_ = 0;
};

// ---- Writing ----------------------------------------------------------------------------------

unsigned bytesFor(std::uint64_t value) {
  if (value <= 0xFF) return 1;
  if (value <= 0xFFFF) return 2;
  if (value <= 0xFFFFFFFF) return 4;
  return 8;
}

void appendBigEndian(Data& out, std::uint64_t value, unsigned size) {
  for (int shift = static_cast<int>(size - 1) * 8; shift >= 0; shift -= 8)
    out.push_back(static_cast<std::uint8_t>(value >> shift));
}

class Writer {
 public:
  explicit Writer(std::string* errorMessage) : errorMessage_(errorMessage) {}

  std::optional<Data> write(const PropertyValue& value) {
    if (!collect(value, 0)) return std::nullopt;
    refSize_ = bytesFor(objects_.size());
    Data out(kMagic.begin(), kMagic.end());
    std::vector<std::uint64_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& object : objects_) {
      offsets.push_back(out.size());
      encode(object, out);
    }
    const std::uint64_t tableOffset = out.size();
    const unsigned offsetSize = bytesFor(tableOffset);
    for (std::uint64_t offset : offsets) appendBigEndian(out, offset, offsetSize);
    out.insert(out.end(), 6, 0);
    out.push_back(static_cast<std::uint8_t>(offsetSize));
    out.push_back(static_cast<std::uint8_t>(refSize_));
    appendBigEndian(out, objects_.size(), 8);
    appendBigEndian(out, 0, 8);  // the top object is the first
    appendBigEndian(out, tableOffset, 8);
    return out;
  }

 private:
  struct Object {
    const PropertyValue* value = nullptr;  // or a dictionary key:
    TextString key;
    std::vector<std::uint64_t> children;
  };

  bool fail(const char* message) {
    if (errorMessage_) *errorMessage_ = message;
    return false;
  }

  // Numbers every object depth first, the containers' references with them.
  bool collect(const PropertyValue& value, int depth) {
    if (depth > kMaxPropertyListDepth) return fail("Property list nesting is too deep");
    const std::size_t index = objects_.size();
    objects_.push_back({&value, {}, {}});
    if (const TextString* text = value.string()) {
      std::string ignored;
      if (!toUtf8Strict(*text, ignored)) return fail("String is not valid Unicode");
    } else if (const PropertyArray* array = value.array()) {
      std::vector<std::uint64_t> children;
      for (const PropertyValue& element : *array) {
        children.push_back(objects_.size());
        if (!collect(element, depth + 1)) return false;
      }
      objects_[index].children = std::move(children);
    } else if (const PropertyDictionary* dictionary = value.dictionary()) {
      std::vector<std::uint64_t> keys, values;
      for (const auto& [key, element] : *dictionary) {
        keys.push_back(objects_.size());
        objects_.push_back({nullptr, fromUtf8(key), {}});
      }
      for (const auto& [key, element] : *dictionary) {
        values.push_back(objects_.size());
        if (!collect(element, depth + 1)) return false;
      }
      keys.insert(keys.end(), values.begin(), values.end());
      objects_[index].children = std::move(keys);
    }
    return true;
  }

  static void marker(Data& out, std::uint8_t type, std::uint64_t count) {
    if (count < 15) {
      out.push_back(static_cast<std::uint8_t>(type << 4 | count));
      return;
    }
    out.push_back(static_cast<std::uint8_t>(type << 4 | 0x0F));
    integer(out, count);
  }

  static void integer(Data& out, std::uint64_t value) {
    const unsigned size = bytesFor(value);
    out.push_back(static_cast<std::uint8_t>(0x10 | std::countr_zero(size)));
    appendBigEndian(out, value, size);
  }

  static void string(Data& out, TextView text) {
    if (std::all_of(text.begin(), text.end(), [](char16_t unit) { return unit < 0x80; })) {
      marker(out, 0x5, text.size());
      for (char16_t unit : text) out.push_back(static_cast<std::uint8_t>(unit));
      return;
    }
    marker(out, 0x6, text.size());
    for (char16_t unit : text) appendBigEndian(out, unit, 2);
  }

  void encode(const Object& object, Data& out) const {
    if (!object.value) return string(out, object.key);
    const PropertyValue& value = *object.value;
    switch (value.kind()) {
      case PropertyValue::Kind::String:
        return string(out, *value.string());
      case PropertyValue::Kind::Integer: {
        const std::int64_t number = *value.integer();
        if (number >= 0) return integer(out, static_cast<std::uint64_t>(number));
        out.push_back(0x13);
        return appendBigEndian(out, static_cast<std::uint64_t>(number), 8);
      }
      case PropertyValue::Kind::Unsigned: {
        const std::uint64_t number = *value.unsignedInteger();
        if (number <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
          return integer(out, number);
        out.push_back(0x14);
        appendBigEndian(out, 0, 8);
        return appendBigEndian(out, number, 8);
      }
      case PropertyValue::Kind::Real:
        out.push_back(0x23);
        return appendBigEndian(out, std::bit_cast<std::uint64_t>(*value.real()), 8);
      case PropertyValue::Kind::Boolean:
        out.push_back(*value.boolean() ? 0x09 : 0x08);
        return;
      case PropertyValue::Kind::Date: {
        const std::int64_t micros = value.date()->microseconds;
        const double seconds =
            micros > std::numeric_limits<std::int64_t>::min() + kReferenceDateOffsetMicroseconds
                ? static_cast<double>(micros - kReferenceDateOffsetMicroseconds) / 1e6
                : static_cast<double>(micros) / 1e6 - 978307200.0;
        out.push_back(0x33);
        return appendBigEndian(out, std::bit_cast<std::uint64_t>(seconds), 8);
      }
      case PropertyValue::Kind::Data: {
        const Data& data = *value.data();
        marker(out, 0x4, data.size());
        out.insert(out.end(), data.begin(), data.end());
        return;
      }
      case PropertyValue::Kind::Array:
      case PropertyValue::Kind::Dictionary: {
        const bool dictionary = value.kind() == PropertyValue::Kind::Dictionary;
        marker(out, dictionary ? 0xD : 0xA,
               dictionary ? object.children.size() / 2 : object.children.size());
        for (std::uint64_t child : object.children) appendBigEndian(out, child, refSize_);
        return;
      }
    }
  }

  std::string* errorMessage_;
  std::vector<Object> objects_;
  unsigned refSize_ = 1;
};

}  // namespace

std::optional<PropertyValue> readBinaryPropertyList(std::span<const std::uint8_t> bytes) {
  return Reader(bytes).read();
}

std::optional<Data> writeBinaryPropertyList(const PropertyValue& value, std::string* errorMessage) {
  return Writer(errorMessage).write(value);
}

}  // namespace ulvek
