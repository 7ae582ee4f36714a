#include "protocol/import_result.h"

#include <algorithm>
#include <string>

#include "base/log.h"
#include "base/text_limits.h"

namespace ulvek {

void ImportResult::putIfPresent(std::string_view key, std::optional<PropertyValue> value) {
  if (!value) return;
  values_.insert_or_assign(std::string(key), std::move(*value));
}

void ImportResult::putIfNonEmpty(std::string_view key, std::optional<TextString> value) {
  if (!value || value->empty()) return;
  values_.insert_or_assign(std::string(key), PropertyValue(std::move(*value)));
}

void ImportResult::putOrRemove(std::string_view key, std::optional<PropertyValue> value) {
  if (!value) {
    remove(key);
    return;
  }
  values_.insert_or_assign(std::string(key), std::move(*value));
}

void ImportResult::remove(std::string_view key) {
  auto it = values_.find(key);
  if (it != values_.end()) values_.erase(it);
}

const TextString* ImportResult::string(std::string_view key) const {
  const PropertyValue* value = get(key);
  return value ? value->string() : nullptr;
}

ImportResult ImportResult::fromValues(PropertyDictionary values) {
  ImportResult result;
  result.values_ = std::move(values);
  return result;
}

namespace {

// Cuts one value to at most `budget` bytes (counted as UTF-8 for text) and says how many it keeps.
class ValueLimit {
 public:
  explicit ValueLimit(std::size_t budget) : budget_(budget) {}

  bool cut() const { return cut_; }
  std::size_t used() const { return used_; }

  void apply(PropertyValue& value, std::size_t valueCap) {
    if (const TextString* text = value.string()) {
      const std::size_t size = utf8Size(*text);
      const std::size_t allowed = std::min(valueCap, budget_ - used_);
      if (size <= allowed) {
        used_ += size;
        return;
      }
      TextString kept(utf8Prefix(*text, allowed));
      used_ += utf8Size(kept);
      value = PropertyValue(std::move(kept));
      cut_ = true;
    } else if (const Data* data = value.data()) {
      const std::size_t allowed = std::min(valueCap, budget_ - used_);
      if (data->size() <= allowed) {
        used_ += data->size();
        return;
      }
      value = PropertyValue(Data(data->begin(), data->begin() + allowed));
      used_ += allowed;
      cut_ = true;
    } else if (PropertyArray* list = value.array()) {
      if (list->size() > ImportResult::kMaxListCount) {
        list->resize(ImportResult::kMaxListCount);
        cut_ = true;
      }
      std::size_t kept = 0;
      for (; kept < list->size() && used_ < budget_; ++kept) apply((*list)[kept], valueCap);
      if (kept < list->size()) {
        list->resize(kept);
        cut_ = true;
      }
    } else {
      // Numbers, dates and flags: small enough to count as a few bytes.
      used_ = std::min(budget_, used_ + 16);
    }
  }

 private:
  std::size_t budget_;
  std::size_t used_ = 0;
  bool cut_ = false;
};

}  // namespace

void ImportResult::limitSizes(std::string_view origin) {
  auto logCut = [&](std::string_view key) {
    logLine("Truncated: " + std::string(origin) + " (" + std::string(key) + ")");
  };
  std::size_t metadataLeft = kMaxMetadataBytes;
  for (auto it = values_.begin(); it != values_.end();) {
    const bool isText = it->first == ImportKey::Text;
    const std::size_t textLimit = textLimitUtf8Bytes();
    ValueLimit limit(isText ? textLimit : metadataLeft);
    limit.apply(it->second, isText ? textLimit : kMaxValueBytes);
    if (limit.cut()) logCut(it->first);
    if (limit.cut() && isText) textTruncated_ = true;
    if (!isText) metadataLeft -= limit.used();
    // A value cut to nothing is none; a key holds a real value or is absent.
    const PropertyValue& value = it->second;
    const bool emptied = (value.string() && value.string()->empty()) ||
                         (value.array() && value.array()->empty()) ||
                         (value.data() && value.data()->empty());
    if (limit.cut() && emptied)
      it = values_.erase(it);
    else
      ++it;
  }
}

ScopedTextLimit::ScopedTextLimit(std::size_t bytes) : previous_(textLimitUtf8Bytes()) {
  setTextLimitUtf8Bytes(bytes);
}

ScopedTextLimit::~ScopedTextLimit() { setTextLimitUtf8Bytes(previous_); }

std::optional<TextString> joinedStrings(const PropertyValue& list, TextView separator) {
  const PropertyArray* array = list.array();
  if (!array) return std::nullopt;
  TextString joined;
  bool first = true;
  for (const PropertyValue& element : *array) {
    const TextString* text = element.string();
    if (!text) return std::nullopt;
    if (!first) joined.append(separator);
    joined.append(*text);
    first = false;
  }
  return joined;
}

}  // namespace ulvek
