#include "readers/textbundle/text_bundle_reader.h"

#include "readers/textbundle/text_bundle.h"

namespace ulvek {

namespace {

class TextBundleReader final : public Reader {
 public:
  std::string_view name() const override { return "text bundle"; }

  // Bundles are folders and packs are unpacked by path: only files and folders are read.
  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    if (!source.isFile()) return std::nullopt;
    std::optional<TextString> text =
        stringWithContentsOfTextBundleFile(source.path(), kDetectEncoding);
    if (!text) return std::nullopt;
    ReaderOutput output;
    output.text = std::move(text);
    return output;
  }

  bool supportsFile(const std::string& path) const override { return isTextBundleFile(path); }
};

}  // namespace

const Reader& textBundleReader() {
  static const TextBundleReader reader;
  return reader;
}

}  // namespace ulvek
