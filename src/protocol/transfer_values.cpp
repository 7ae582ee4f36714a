#include "protocol/transfer_values.h"

#include <cerrno>
#include <optional>
#include <string>

#include "base/text_limits.h"
#include "protocol/dbus_interface.h"
#include "protocol/dbus_values.h"
#include "protocol/sealed_memfd.h"

namespace ulvek::dbus {
namespace {

int appendEntry(sd_bus_message* message, std::string_view key, const auto& appendValue) {
  int r = sd_bus_message_open_container(message, 'e', "sv");
  std::string wireKey = wireString(key);
  if (r >= 0) r = sd_bus_message_append_basic(message, 's', wireKey.c_str());
  if (r >= 0) r = appendValue();
  if (r >= 0) r = sd_bus_message_close_container(message);
  return r;
}

}  // namespace

int appendTransferResult(sd_bus_message* message, const ImportResult& result) {
  std::optional<OwnedDescriptor> textFile;
  if (const TextString* text = result.string(ImportKey::Text);
      text && utf8Size(*text) > kInlineTextBytes) {
    std::string utf8 = toUtf8(*text);
    Result<OwnedDescriptor> made = makeSealedMemfd(
        {reinterpret_cast<const std::uint8_t*>(utf8.data()), utf8.size()}, "ulvekbot-text");
    if (!made) return -static_cast<int>(made.error().code ? made.error().code : EIO);
    textFile = std::move(*made);
  }
  int r = sd_bus_message_open_container(message, 'a', "{sv}");
  for (const auto& entry : result.values()) {
    if (r < 0) break;
    if (textFile && entry.first == ImportKey::Text) continue;
    const PropertyValue& value = entry.second;
    r = appendEntry(message, entry.first, [&] { return appendVariant(message, value); });
  }
  if (r >= 0 && textFile) {
    // sd-bus keeps its own duplicate of the descriptor until the message is sent.
    r = appendEntry(message, kTextFileKey,
                    [&] { return sd_bus_message_append(message, "v", "h", textFile->get()); });
  }
  if (r >= 0 && result.textTruncated()) {
    r = appendEntry(message, kTextTruncatedKey,
                    [&] { return sd_bus_message_append(message, "v", "b", 1); });
  }
  if (r >= 0) r = sd_bus_message_close_container(message);
  return r;
}

int readTransferResult(sd_bus_message* message, ImportResult& result) {
  PropertyDictionary values;
  int r = sd_bus_message_enter_container(message, 'a', "{sv}");
  if (r < 0) return r;
  if (r == 0) return -EBADMSG;
  while ((r = sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
    const char* key = nullptr;
    if ((r = sd_bus_message_read_basic(message, 's', &key)) < 0) return r;
    std::string name(key ? key : "");
    const char* contents = nullptr;
    if ((r = sd_bus_message_peek_type(message, nullptr, &contents)) < 0) return r;
    if (name == kTextFileKey && contents && std::string_view(contents) == "h") {
      int descriptor = -1;
      if ((r = sd_bus_message_read(message, "v", "h", &descriptor)) < 0) return r;
      Result<SealedBytes> text = SealedBytes::map(descriptor);
      if (!text) return -EBADMSG;
      std::span<const std::uint8_t> bytes = text->bytes();
      values.insert_or_assign(std::string(ImportKey::Text),
                              PropertyValue(fromUtf8(std::string_view(
                                  reinterpret_cast<const char*>(bytes.data()), bytes.size()))));
    } else {
      PropertyValue value;
      if ((r = readVariant(message, value)) < 0) return r;
      values.insert_or_assign(std::move(name), std::move(value));
    }
    if ((r = sd_bus_message_exit_container(message)) < 0) return r;
  }
  if (r < 0) return r;
  if ((r = sd_bus_message_exit_container(message)) < 0) return r;
  result = ImportResult::fromValues(std::move(values));
  return r;
}

}  // namespace ulvek::dbus
