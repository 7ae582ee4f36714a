// The OLE2 module: libgsf behind the OleContainer interface. It links libgsf and nothing of
// ulvekbot's, so that no code is held twice in a process.
#include <gsf/gsf.h>

#include <memory>
#include <mutex>

#include "readers/doc/ole_container.h"

namespace ulvek {
namespace {

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

// libgsf turns a FILETIME of 0 ("no date") into this moment, by wrapping the seconds before
// 1970 around 32 bits.
constexpr guint32 kNoFileTime = static_cast<guint32>(-11644473600LL);

constexpr const char* kSummaryNames[] = {
    GSF_META_NAME_TITLE,         GSF_META_NAME_SUBJECT,     GSF_META_NAME_CREATOR,
    GSF_META_NAME_KEYWORDS,      GSF_META_NAME_DESCRIPTION, GSF_META_NAME_DATE_CREATED,
    GSF_META_NAME_DATE_MODIFIED,
};

class GsfContainer final : public OleContainer {
 public:
  GsfContainer(GsfObject<GsfInput> input, GsfObject<GsfInfile> container)
      : input_(std::move(input)), container_(std::move(container)) {}

  std::optional<std::vector<std::uint8_t>> stream(const char* name, std::size_t limit) override {
    GsfObject<GsfInput> stream(gsf_infile_child_by_name(container_.get(), name));
    if (!stream) return std::nullopt;
    gsf_off_t size = gsf_input_size(stream.get());
    if (size < 0 || static_cast<std::uint64_t>(size) > limit) return std::nullopt;
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(size));
    if (size > 0 && !gsf_input_read(stream.get(), bytes.size(), bytes.data())) return std::nullopt;
    return bytes;
  }

  std::vector<OleSummaryEntry> summary() override {
    std::vector<OleSummaryEntry> entries;
    GsfObject<GsfInput> stream(
        gsf_infile_child_by_name(container_.get(), "\005SummaryInformation"));
    if (!stream) return entries;
    GsfObject<GsfDocMetaData> meta(gsf_doc_meta_data_new());
    if (GError* error = gsf_doc_meta_data_read_from_msole(meta.get(), stream.get())) {
      g_error_free(error);  // what was read before the error is kept
    }
    for (const char* name : kSummaryNames) {
      GsfDocProp* property = gsf_doc_meta_data_lookup(meta.get(), name);
      const GValue* value = property ? gsf_doc_prop_get_val(property) : nullptr;
      if (!value) continue;
      if (G_VALUE_HOLDS_STRING(value)) {
        const char* text = g_value_get_string(value);
        if (text && *text) entries.push_back({name, text, false});
      } else if (VAL_IS_GSF_TIMESTAMP(value)) {
        auto* stamp = static_cast<const GsfTimestamp*>(g_value_get_boxed(value));
        if (!stamp || stamp->timet == kNoFileTime) continue;
        if (char* text = gsf_timestamp_as_string(stamp)) {
          entries.push_back({name, text, true});
          g_free(text);
        }
      }
    }
    return entries;
  }

 private:
  GsfObject<GsfInput> input_;
  GsfObject<GsfInfile> container_;
};

}  // namespace
}  // namespace ulvek

extern "C" __attribute__((visibility("default"))) ulvek::OleContainer* ulvek_open_ole_container(
    const std::uint8_t* bytes, std::size_t size, std::string* error) {
  using namespace ulvek;
  quietLibgsf();
  GsfObject<GsfInput> input(gsf_input_memory_new(bytes, gsf_off_t(size), FALSE));
  if (!input) {
    *error = "no memory";
    return nullptr;
  }
  GError* failure = nullptr;
  GsfObject<GsfInfile> container(gsf_infile_msole_new(input.get(), &failure));
  if (!container) {
    *error = failure ? failure->message : "no container";
    if (failure) g_error_free(failure);
    return nullptr;
  }
  return new GsfContainer(std::move(input), std::move(container));
}
