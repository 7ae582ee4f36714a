#pragma once

// A person record made from an address card, and what the import asks of it: its searchable text
// and contact attributes, its display name and its labelled text.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "base/property_value.h"
#include "base/text_string.h"
#include "platform/file_bytes.h"
#include "readers/addresscard/vcard.h"
#include "readers/reader.h"

namespace ulvek {

// Property names of a person record.
namespace PersonProperty {
inline constexpr std::string_view First = "First";
inline constexpr std::string_view Middle = "Middle";
inline constexpr std::string_view Last = "Last";
inline constexpr std::string_view Title = "Title";
inline constexpr std::string_view Suffix = "Suffix";
inline constexpr std::string_view Nickname = "Nickname";
inline constexpr std::string_view Organization = "Organization";
inline constexpr std::string_view Department = "Department";
inline constexpr std::string_view JobTitle = "JobTitle";
inline constexpr std::string_view Address = "Address";
inline constexpr std::string_view Phone = "Phone";
inline constexpr std::string_view Email = "Email";
inline constexpr std::string_view URLs = "URLs";
inline constexpr std::string_view HomePage = "HomePage";
inline constexpr std::string_view AIMInstant = "AIMInstant";
inline constexpr std::string_view ICQInstant = "ICQInstant";
inline constexpr std::string_view JabberInstant = "JabberInstant";
inline constexpr std::string_view YahooInstant = "YahooInstant";
inline constexpr std::string_view MSNInstant = "MSNInstant";
inline constexpr std::string_view Note = "Note";
inline constexpr std::string_view UID = "UID";
inline constexpr std::string_view Birthday = "Birthday";
inline constexpr std::string_view Creation = "Creation";
inline constexpr std::string_view Modification = "Modification";
inline constexpr std::string_view PersonFlags = "ABPersonFlags";
}  // namespace PersonProperty

// Keys of an address dictionary.
namespace AddressKey {
inline constexpr std::string_view Street = "Street";
inline constexpr std::string_view City = "City";
inline constexpr std::string_view State = "State";
inline constexpr std::string_view ZIP = "ZIP";
inline constexpr std::string_view Country = "Country";
inline constexpr std::string_view CountryCode = "CountryCode";
}  // namespace AddressKey

// Standard labels are stored wrapped: "_$!<Home>!$_".
TextString wrappedLabel(TextView label);
TextString unwrappedLabel(TextView label);

// An ordered list of labelled values with an optional primary identifier.
struct MultiValue {
  struct Entry {
    TextString label;
    PropertyValue value;
    TextString identifier;
  };
  std::vector<Entry> entries;
  std::optional<TextString> primaryIdentifier;
};

using PersonValue = std::variant<PropertyValue, MultiValue>;

class Person {
 public:
  // The first card of vCard data; nothing when the data holds no card.
  static std::optional<Person> initWithData(Bytes bytes, std::string_view name = {});
  static std::optional<Person> initWithContentsOfFile(const std::string& path);
  static Person fromVCard(const VCard& card);

  const PersonValue* valueForProperty(std::string_view name) const;
  void setValue(std::string_view name, PersonValue value);
  // Properties in name order, for the labelled text.
  const std::map<std::string, PersonValue, std::less<>>& properties() const { return values_; }

  // The card as a reader answers it: the fields as text, each followed by a line feed, and the
  // e-mail addresses, phone numbers and home page.
  ReaderOutput metaData() const;

  std::optional<std::vector<TextString>> emailAdresses() const;
  std::optional<std::vector<TextString>> phoneNumbers() const;
  std::optional<TextString> homePage() const;
  std::optional<TextString> primaryEmail() const;
  std::optional<TextString> proposedName() const;
  bool showAsCompany() const;
  bool showAsPerson() const;

  // Plain text of a value; for "Address" dictionaries the formatted postal address.
  TextString stringForProperty(std::optional<std::string_view> name,
                               const PersonValue& value) const;
  TextString stringForProperty(std::string_view name) const;

 private:
  std::optional<std::vector<TextString>> stringList(std::string_view name) const;
  std::map<std::string, PersonValue, std::less<>> values_;
};

// Labelled text lines "label:\tvalue\n" of a value; identity, dates and flags give "".
TextString labelledStringForProperty(const std::optional<TextString>& name,
                                     const PersonValue& value);

}  // namespace ulvek
