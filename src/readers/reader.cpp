#include "readers/reader.h"

#include <array>

namespace ulvek {

namespace {

// Stands in for a reader that has not landed yet: it reads nothing.
class AbsentReader final : public Reader {
 public:
  std::optional<ReaderOutput> read(const std::string&) const override { return std::nullopt; }
};

const AbsentReader kAbsentReader;

constexpr std::size_t kRouteCount = static_cast<std::size_t>(ReaderRoute::AddressCard) + 1;

using ReaderFunction = const Reader& (*)();
constexpr std::array<ReaderFunction, kRouteCount> kReaders = {
    importerHost,       pdfReader,         webArchiveReader,
    textBundleReader,   wordPerfectReader, attributedDocumentReader,
    textClippingReader, addressCardReader};

std::array<const Reader*, kRouteCount> standIns{};

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

const Reader& readerFor(ReaderRoute route) {
  auto index = static_cast<std::size_t>(route);
  if (const Reader* standIn = standIns[index]) return *standIn;
  return kReaders[index]();
}

ScopedReaderStandIn::ScopedReaderStandIn(ReaderRoute route, const Reader& standIn)
    : route_(route), previous_(standIns[static_cast<std::size_t>(route)]) {
  standIns[static_cast<std::size_t>(route)] = &standIn;
}

ScopedReaderStandIn::~ScopedReaderStandIn() {
  standIns[static_cast<std::size_t>(route_)] = previous_;
}

}  // namespace ulvek
