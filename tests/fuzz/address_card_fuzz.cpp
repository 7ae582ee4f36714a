// Feeds vCard data to the card parser and the person record built from it.
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "readers/addresscard/person.h"
#include "readers/addresscard/vcard.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  using namespace ulvek;
  Bytes bytes(data, size);
  VCardLimits limits;
  limits.maxCards = 4;
  limits.maxProperties = 200;
  if (auto cards = parseVCards(bytes, "fuzz", limits)) {
    fuzzing::check(cards->size() <= limits.maxCards);
    for (const VCard& card : *cards) {
      fuzzing::check(card.properties.size() <= limits.maxProperties);
      Person person = Person::fromVCard(card);
      fuzzing::check(person.metaData().text.has_value());
      (void)person.proposedName();
      for (const auto& [name, value] : person.properties())
        (void)labelledStringForProperty(fromUtf8(name), value);
    }
  }
  return 0;
}
