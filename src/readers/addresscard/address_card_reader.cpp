#include "readers/addresscard/address_card_reader.h"

#include "base/log.h"
#include "metadata/file_types.h"
#include "readers/addresscard/person.h"

namespace ulvek {

namespace {

class AddressCardReader final : public Reader {
 public:
  std::string_view name() const override { return "address card"; }

  std::optional<ReaderOutput> read(const ReaderSource& source) const override {
    std::optional<Bytes> bytes = source.bytes();
    if (!bytes) return std::nullopt;
    std::string name = source.isFile() ? source.path() : std::string(source.name());
    std::optional<Person> person = Person::initWithData(*bytes, name);
    if (!person) {
      if (!bytes->empty()) logLine("No address card in: " + name);
      return std::nullopt;
    }
    ReaderOutput output;
    output.attributes = person->metaData();
    output.vocabulary = Vocabulary::Spotlight;
    return output;
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
