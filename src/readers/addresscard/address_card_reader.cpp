#include "readers/addresscard/address_card_reader.h"

#include <cstdint>
#include <string>

#include "base/failure.h"
#include "base/log.h"
#include "metadata/file_types.h"
#include "readers/addresscard/person.h"

namespace ulvek {

namespace {

// Address books of thousands of cards stay far below this.
constexpr std::uint64_t kMaxAddressCardFileSize = 16u * 1024 * 1024;

class AddressCardReader final : public Reader {
 public:
  std::string_view name() const override { return "address card"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    std::string name = source.isFile() ? source.path() : std::string(source.name());
    std::optional<Bytes> bytes = source.bytes();
    if (!bytes) return std::nullopt;
    // Only the first card is read, and cards are small: past the cap lies only what attacks
    // (90 MB of separators in one address took gigabytes). Large files are mapped, not read.
    if (bytes->size() > kMaxAddressCardFileSize) {
      logLine("Address card read only in its first " +
              std::to_string(kMaxAddressCardFileSize / (1024 * 1024)) + " MB: " + name + " (" +
              std::to_string(bytes->size() / (1024 * 1024)) + " MB)");
      bytes = bytes->first(kMaxAddressCardFileSize);
    }
    std::optional<Person> person = Person::initWithData(*bytes, name);
    if (!person) {
      if (!bytes->empty()) logFailure(FailureKind::Damaged, "No address card in: " + name);
      return std::nullopt;
    }
    return person->metaData();
  }

  bool supportsFile(const std::string& path) const override {
    return isFormExtension(TextView(pathExtension(path)));
  }
};

}  // namespace

const Reader& addressCardReader() {
  static const AddressCardReader reader;
  return reader;
}

}  // namespace ulvek
