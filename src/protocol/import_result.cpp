#include "protocol/import_result.h"

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
