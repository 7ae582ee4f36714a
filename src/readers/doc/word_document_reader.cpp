#include "readers/doc/word_document_reader.h"

#include <gsf/gsf.h>

#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include "base/log.h"
#include "readers/doc/word_document_text.h"
#include "readers/xml/document_text.h"

namespace ulvek {
namespace {

constexpr std::uint8_t kOLEMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};

struct ObjectRelease {
  void operator()(void* object) const { g_object_unref(object); }
};
template <typename T>
using GsfObject = std::unique_ptr<T, ObjectRelease>;

// libgsf reports broken containers through GLib's log, and dumps their bytes with g_print, as
// well as through its answers; the answers are what we go by, so its messages would only repeat
// them on stderr and stdout. Some of them carry no domain, so GLib's default domain is quieted
// too; nothing of ours logs or prints through GLib.
void quietLibgsf() {
  static std::once_flag once;
  std::call_once(once, [] {
    gsf_init();
    auto discard = [](const gchar*, GLogLevelFlags, const gchar*, gpointer) {};
    for (const char* domain : {"libgsf", "libgsf:msole", static_cast<const char*>(nullptr)})
      g_log_set_handler(domain, GLogLevelFlags(G_LOG_LEVEL_MASK | G_LOG_FLAG_FATAL), discard,
                        nullptr);
    g_set_print_handler([](const gchar*) {});
  });
}

// A stream of the container, whole. Nothing when it is missing, larger than the container
// itself (which no sound stream is) or cannot be read.
std::optional<std::vector<std::uint8_t>> streamBytes(GsfInfile* container, const char* name,
                                                     std::size_t containerSize) {
  GsfObject<GsfInput> stream(gsf_infile_child_by_name(container, name));
  if (!stream) return std::nullopt;
  gsf_off_t size = gsf_input_size(stream.get());
  if (size < 0 || static_cast<std::uint64_t>(size) > containerSize) return std::nullopt;
  std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
  if (size > 0 && !gsf_input_read(stream.get(), bytes.size(), bytes.data())) return std::nullopt;
  return bytes;
}

// libgsf turns a FILETIME of 0 ("no date") into this moment, by wrapping the seconds before
// 1970 around 32 bits.
constexpr guint32 kNoFileTime = static_cast<guint32>(-11644473600LL);

std::optional<PropertyValue> propertyValue(const GValue* value, std::string_view key) {
  if (G_VALUE_HOLDS_STRING(value)) {
    const char* text = g_value_get_string(value);
    if (!text || !*text) return std::nullopt;
    if (key == DocumentAttribute::Keywords) return PropertyValue(keywordWords(text));
    return PropertyValue::fromUtf8(text);
  }
  if (VAL_IS_GSF_TIMESTAMP(value)) {
    auto* stamp = static_cast<const GsfTimestamp*>(g_value_get_boxed(value));
    if (!stamp || stamp->timet == kNoFileTime) return std::nullopt;
    char* text = gsf_timestamp_as_string(stamp);
    std::optional<Date> date = text ? w3cDate(text) : std::nullopt;
    g_free(text);
    if (date) return PropertyValue(*date);
  }
  return std::nullopt;
}

// The summary information's properties, by libgsf's names for them.
constexpr std::pair<const char*, std::string_view> kSummaryProperties[] = {
    {GSF_META_NAME_TITLE, DocumentAttribute::Title},
    {GSF_META_NAME_SUBJECT, DocumentAttribute::Subject},
    {GSF_META_NAME_CREATOR, DocumentAttribute::Author},
    {GSF_META_NAME_KEYWORDS, DocumentAttribute::Keywords},
    {GSF_META_NAME_DESCRIPTION, DocumentAttribute::Comment},
    {GSF_META_NAME_DATE_CREATED, DocumentAttribute::CreationTime},
    {GSF_META_NAME_DATE_MODIFIED, DocumentAttribute::ModificationTime},
};

PropertyDictionary summaryInformation(GsfInfile* container) {
  PropertyDictionary attributes;
  GsfObject<GsfInput> stream(gsf_infile_child_by_name(container, "\005SummaryInformation"));
  if (!stream) return attributes;
  GsfObject<GsfDocMetaData> meta(gsf_doc_meta_data_new());
  if (GError* error = gsf_doc_meta_data_read_from_msole(meta.get(), stream.get())) {
    g_error_free(error);  // what was read before the error is kept
  }
  for (const auto& [name, key] : kSummaryProperties) {
    GsfDocProp* property = gsf_doc_meta_data_lookup(meta.get(), name);
    const GValue* value = property ? gsf_doc_prop_get_val(property) : nullptr;
    if (!value) continue;
    if (std::optional<PropertyValue> converted = propertyValue(value, key))
      attributes.emplace(std::string(key), std::move(*converted));
  }
  return attributes;
}

}  // namespace

bool looksLikeWordDocument(Bytes bytes, std::string_view extension) {
  return bytes.size() >= sizeof kOLEMagic && std::memcmp(bytes.data(), kOLEMagic, 8) == 0;
}

std::optional<ReaderOutput> readWordDocument(const ReaderSource& source) {
  std::optional<Bytes> bytes = source.bytes();
  if (!bytes || !looksLikeWordDocument(*bytes, {})) return std::nullopt;
  std::string name = source.isFile() ? source.path() : std::string(source.name());
  quietLibgsf();

  GsfObject<GsfInput> input(gsf_input_memory_new(bytes->data(), gsf_off_t(bytes->size()), FALSE));
  GError* error = nullptr;
  GsfObject<GsfInfile> container(gsf_infile_msole_new(input.get(), &error));
  if (!container) {
    logLine("Damaged document: " + name + " (" + (error ? error->message : "no container") + ")");
    if (error) g_error_free(error);
    return std::nullopt;
  }
  std::optional<std::vector<std::uint8_t>> wordDocument =
      streamBytes(container.get(), "WordDocument", bytes->size());
  if (!wordDocument) return std::nullopt;  // another kind of OLE2 file
  std::optional<WordFileInformation> information = readWordFileInformation(*wordDocument);
  if (!information) {
    logLine("Damaged document: " + name + " (no file information block)");
    return std::nullopt;
  }
  if (!isReadableWordVersion(*information)) {
    logLine("Not a Word 97 document or encrypted: " + name);
    return std::nullopt;
  }
  std::optional<std::vector<std::uint8_t>> table = streamBytes(
      container.get(), information->tableStreamOne ? "1Table" : "0Table", bytes->size());
  if (!table) {
    logLine("Damaged document: " + name + " (no table stream)");
    return std::nullopt;
  }

  WordDocumentText text = readWordDocumentText(*information, *wordDocument, *table);
  if (!text.damage.empty()) logLine("Damaged document: " + name + " (" + text.damage[0] + ")");
  ReaderOutput output{std::move(text.text), summaryInformation(container.get()),
                      Vocabulary::AttributedDocument};
  output.attributes[std::string(DocumentAttribute::DocumentType)] =
      PropertyValue(kDocFormatTextDocumentType);
  return output;
}

}  // namespace ulvek
