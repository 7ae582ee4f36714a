#include "readers/reader.h"

namespace ulvek {

namespace {

// Stands in for a reader that has not landed yet: it reads nothing.
class AbsentReader final : public Reader {
 public:
  std::optional<ReaderOutput> read(const std::string&) const override { return std::nullopt; }
};

const AbsentReader kAbsentReader;

}  // namespace

// Placeholders; see the table in reader.h.
const Reader& importerHost() { return kAbsentReader; }
const Reader& pdfReader() { return kAbsentReader; }
const Reader& webArchiveReader() { return kAbsentReader; }
const Reader& textBundleReader() { return kAbsentReader; }
const Reader& wordPerfectReader() { return kAbsentReader; }
const Reader& attributedDocumentReader() { return kAbsentReader; }
const Reader& textClippingReader() { return kAbsentReader; }
const Reader& addressCardReader() { return kAbsentReader; }

}  // namespace ulvek
