#include "readers/addresscard/person.h"

#include <array>
#include <cstdint>
#include <ctime>
#include <map>
#include <span>

#include "base/log.h"
#include "readers/addresscard/postal_address.h"
#include "text/string_utilities.h"

namespace ulvek {

namespace {

constexpr std::u16string_view kLabelStart = u"_$!<";
constexpr std::u16string_view kLabelEnd = u">!$_";

// The text of the card attributes, in this order.
constexpr std::array<std::string_view, 13> kTextProperties = {
    PersonProperty::First,         PersonProperty::Middle,       PersonProperty::Last,
    PersonProperty::Nickname,      PersonProperty::Organization, PersonProperty::Address,
    PersonProperty::Phone,         PersonProperty::AIMInstant,   PersonProperty::ICQInstant,
    PersonProperty::JabberInstant, PersonProperty::YahooInstant, PersonProperty::MSNInstant,
    PersonProperty::Note,
};

// Properties the labelled text leaves out.
constexpr std::array<std::string_view, 4> kUnlabelledProperties = {
    PersonProperty::UID, PersonProperty::Modification, PersonProperty::Creation,
    PersonProperty::PersonFlags};

// Messenger accounts: the card property that names the service, and the URI schemes of IMPP.
struct Messenger {
  std::string_view property;
  std::string_view cardProperty;
  std::array<std::u16string_view, 2> schemes;
};
constexpr std::array<Messenger, 5> kMessengers = {{
    {PersonProperty::AIMInstant, "X-AIM", {u"aim", u""}},
    {PersonProperty::ICQInstant, "X-ICQ", {u"icq", u""}},
    {PersonProperty::JabberInstant, "X-JABBER", {u"xmpp", u"jabber"}},
    {PersonProperty::YahooInstant, "X-YAHOO", {u"ymsgr", u"yahoo"}},
    {PersonProperty::MSNInstant, "X-MSN", {u"msnim", u"msn"}},
}};

// TYPE parameters → standard labels, first match wins.
struct LabelRow {
  std::string_view type;
  std::string_view secondType;  // both must be present when given
  std::u16string_view label;
};
constexpr std::array<LabelRow, 9> kPhoneLabels = {{
    {"FAX", "HOME", u"HomeFAX"},
    {"FAX", "WORK", u"WorkFAX"},
    {"FAX", "", u"OtherFAX"},
    {"CELL", "", u"Mobile"},
    {"IPHONE", "", u"iPhone"},
    {"PAGER", "", u"Pager"},
    {"MAIN", "", u"Main"},
    {"HOME", "", u"Home"},
    {"WORK", "", u"Work"},
}};
constexpr std::array<LabelRow, 2> kPlaceLabels = {{
    {"HOME", "", u"Home"},
    {"WORK", "", u"Work"},
}};

TextString typeLabel(const VCardProperty& property, std::span<const LabelRow> rows) {
  for (const LabelRow& row : rows) {
    if (!property.hasType(row.type)) continue;
    if (!row.secondType.empty() && !property.hasType(row.secondType)) continue;
    return wrappedLabel(row.label);
  }
  return wrappedLabel(u"Other");
}

// A label given by a grouped X-ABLabel line of the card wins over the TYPE parameters.
std::optional<TextString> groupLabel(const VCard& card, const std::string& group) {
  if (group.empty()) return std::nullopt;
  for (const VCardProperty& property : card.properties)
    if (property.group == group && property.name == "X-ABLABEL")
      return unescapeVCardText(property.value);
  return std::nullopt;
}

const VCardProperty* groupProperty(const VCard& card, const std::string& group,
                                   std::string_view name) {
  if (group.empty()) return nullptr;
  for (const VCardProperty& property : card.properties)
    if (property.group == group && property.name == name) return &property;
  return nullptr;
}

std::optional<std::int64_t> number(TextView digits) {
  if (digits.empty()) return std::nullopt;
  std::int64_t value = 0;
  for (char16_t c : digits) {
    if (c < u'0' || c > u'9') return std::nullopt;
    value = value * 10 + (c - u'0');
  }
  return value;
}

// "1996-04-15", "19960415", "2012-06-06T12:00:00Z", "20120606T120000Z" (UTC).
std::optional<Date> parseDate(TextView text) {
  TextString digits;
  for (char16_t c : text) {
    if (c == u'T' || c == u't') {
      digits.push_back(u'T');
    } else if (c >= u'0' && c <= u'9') {
      digits.push_back(c);
    } else if (c != u'-' && c != u':') {
      break;
    }
  }
  std::size_t t = digits.find(u'T');
  TextView day = TextView(digits).substr(0, t);
  if (day.size() != 8) return std::nullopt;
  auto year = number(day.substr(0, 4));
  auto month = number(day.substr(4, 2));
  auto dayOfMonth = number(day.substr(6, 2));
  if (!year || !month || !dayOfMonth || *month < 1 || *month > 12 || *dayOfMonth < 1 ||
      *dayOfMonth > 31)
    return std::nullopt;
  std::tm time{};
  time.tm_year = static_cast<int>(*year - 1900);
  time.tm_mon = static_cast<int>(*month - 1);
  time.tm_mday = static_cast<int>(*dayOfMonth);
  if (t != TextString::npos) {
    TextView clock = TextView(digits).substr(t + 1);
    if (clock.size() >= 6) {
      time.tm_hour = static_cast<int>(number(clock.substr(0, 2)).value_or(0) % 24);
      time.tm_min = static_cast<int>(number(clock.substr(2, 2)).value_or(0) % 60);
      time.tm_sec = static_cast<int>(number(clock.substr(4, 2)).value_or(0) % 61);
    }
  }
  return Date{static_cast<std::int64_t>(timegm(&time)) * 1000000};
}

TextString joinedNonEmpty(const std::vector<TextString>& parts, TextView separator) {
  TextString result;
  for (const TextString& piece : parts) {
    TextString trimmed = stringByTrimmingWhiteSpaces(piece);
    if (trimmed.empty()) continue;
    if (!result.empty()) result += separator;
    result += trimmed;
  }
  return result;
}

TextString component(const std::vector<TextString>& parts, std::size_t index) {
  return index < parts.size() ? stringByTrimmingWhiteSpaces(parts[index]) : TextString();
}

// Builds the record from the card's lines.
class PersonBuilder {
 public:
  explicit PersonBuilder(const VCard& card) : card_(card) {}

  Person build() {
    for (const VCardProperty& property : card_.properties) add(property);
    if (!person_.valueForProperty(PersonProperty::First) &&
        !person_.valueForProperty(PersonProperty::Last) && formattedName_ &&
        (!organization_ || *organization_ != *formattedName_)) {
      person_.setValue(PersonProperty::First, PropertyValue(*formattedName_));
    }
    for (auto& [name, values] : multiValues_) person_.setValue(name, std::move(values));
    return std::move(person_);
  }

 private:
  void add(const VCardProperty& property) {
    const std::string& name = property.name;
    if (name == "N") return addName(property);
    if (name == "FN") {
      TextString text = stringByTrimmingWhiteSpaces(unescapeVCardText(property.value));
      if (!text.empty()) formattedName_ = text;
      return;
    }
    if (name == "NICKNAME") return setText(PersonProperty::Nickname, property);
    if (name == "TITLE") return setText(PersonProperty::JobTitle, property);
    if (name == "ORG") return addOrganization(property);
    if (name == "ADR") return addAddress(property);
    if (name == "TEL") {
      TextString number = unescapeVCardText(property.value);
      if (number.starts_with(u"tel:")) number.erase(0, 4);
      return addEntryValue(PersonProperty::Phone, property, std::move(number), kPhoneLabels);
    }
    if (name == "EMAIL") {
      return addEntryValue(PersonProperty::Email, property, unescapeVCardText(property.value),
                           kPlaceLabels);
    }
    if (name == "URL") return addURL(property);
    if (name == "NOTE") return addNote(property);
    if (name == "UID") return setText(PersonProperty::UID, property);
    if (name == "BDAY") return setDate(PersonProperty::Birthday, property);
    if (name == "REV") return setDate(PersonProperty::Modification, property);
    if (name == "X-ABSHOWAS") {
      if (stringByTrimmingWhiteSpaces(property.value) == u"COMPANY")
        person_.setValue(PersonProperty::PersonFlags, PropertyValue(std::int64_t{1}));
      return;
    }
    if (name == "IMPP") return addMessenger(property);
    for (const Messenger& messenger : kMessengers) {
      if (name == messenger.cardProperty) {
        return addEntryValue(messenger.property, property, unescapeVCardText(property.value),
                             kPlaceLabels);
      }
    }
  }

  // Single values: the first line of the card wins.
  void setText(std::string_view key, const VCardProperty& property) {
    setPart(key, stringByTrimmingWhiteSpaces(unescapeVCardText(property.value)));
  }

  void setDate(std::string_view key, const VCardProperty& property) {
    if (person_.valueForProperty(key)) return;
    if (auto date = parseDate(stringByTrimmingWhiteSpaces(property.value)))
      person_.setValue(key, PropertyValue(*date));
  }

  void setPart(std::string_view key, TextString text) {
    if (!text.empty() && !person_.valueForProperty(key))
      person_.setValue(key, PropertyValue(std::move(text)));
  }

  void addName(const VCardProperty& property) {
    std::vector<TextString> parts = splitVCardValue(property.value, u';');
    setPart(PersonProperty::Last, component(parts, 0));
    setPart(PersonProperty::First, component(parts, 1));
    // Several additional names are a comma list; they read as one middle name.
    TextString middle = component(parts, 2);
    for (char16_t& c : middle)
      if (c == u',') c = u' ';
    setPart(PersonProperty::Middle, stringByRemovingMultipleSpaces(middle));
    setPart(PersonProperty::Title, component(parts, 3));
    setPart(PersonProperty::Suffix, component(parts, 4));
  }

  void addOrganization(const VCardProperty& property) {
    std::vector<TextString> parts = splitVCardValue(property.value, u';');
    TextString organization = component(parts, 0);
    if (organization_ || organization.empty()) return;
    organization_ = organization;
    setPart(PersonProperty::Organization, std::move(organization));
    setPart(PersonProperty::Department, component(parts, 1));
  }

  void addAddress(const VCardProperty& property) {
    std::vector<TextString> parts = splitVCardValue(property.value, u';');
    PropertyDictionary address;
    auto put = [&address](std::string_view key, TextString text) {
      if (!text.empty()) address.emplace(std::string(key), PropertyValue(std::move(text)));
    };
    // Post office box and extended address lines precede the street.
    put(AddressKey::Street,
        joinedNonEmpty({component(parts, 0), component(parts, 1), component(parts, 2)}, u"\n"));
    put(AddressKey::City, component(parts, 3));
    put(AddressKey::State, component(parts, 4));
    put(AddressKey::ZIP, component(parts, 5));
    put(AddressKey::Country, component(parts, 6));
    if (const VCardProperty* code = groupProperty(card_, property.group, "X-ABADR")) {
      TextString text = stringByTrimmingWhiteSpaces(code->value);
      if (text.size() == 2) put(AddressKey::CountryCode, std::move(text));
    }
    if (address.empty()) return;
    append(PersonProperty::Address, property, PropertyValue(std::move(address)), kPlaceLabels);
  }

  void addEntryValue(std::string_view key, const VCardProperty& property, TextString text,
                     std::span<const LabelRow> labels) {
    text = stringByTrimmingWhiteSpaces(text);
    if (text.empty()) return;
    MultiValue& values = multiValues_[std::string(key)];
    for (const MultiValue::Entry& entry : values.entries)
      if (entry.value.string() && *entry.value.string() == text) return;
    append(key, property, PropertyValue(std::move(text)), labels);
  }

  void append(std::string_view key, const VCardProperty& property, PropertyValue value,
              std::span<const LabelRow> labels) {
    MultiValue& values = multiValues_[std::string(key)];
    TextString label = groupLabel(card_, property.group).value_or(typeLabel(property, labels));
    TextString identifier =
        fromAscii(std::string(key) + "-" + std::to_string(values.entries.size()));
    if (!values.primaryIdentifier && property.hasType("PREF"))
      values.primaryIdentifier = identifier;
    values.entries.push_back({std::move(label), std::move(value), std::move(identifier)});
  }

  void addURL(const VCardProperty& property) {
    TextString text = stringByTrimmingWhiteSpaces(unescapeVCardText(property.value));
    if (text.empty()) return;
    std::optional<TextString> label = groupLabel(card_, property.group);
    if (label && unwrappedLabel(*label) == u"HomePage" &&
        !person_.valueForProperty(PersonProperty::HomePage)) {
      person_.setValue(PersonProperty::HomePage, PropertyValue(text));
    }
    addEntryValue(PersonProperty::URLs, property, std::move(text), kPlaceLabels);
  }

  void addNote(const VCardProperty& property) {
    TextString text = unescapeVCardText(property.value);
    text = stringByTrimmingWhiteSpaces(stringByReplacingString(text, u"\r\n", u"\n"));
    if (text.empty()) return;
    if (const PersonValue* earlier = person_.valueForProperty(PersonProperty::Note)) {
      if (auto* previous = std::get_if<PropertyValue>(earlier); previous && previous->string())
        text = *previous->string() + u"\n" + text;
    }
    person_.setValue(PersonProperty::Note, PropertyValue(std::move(text)));
  }

  // "aim:name", "xmpp:name@host", "msnim:chat?contact=name"; an X-SERVICE-TYPE parameter names
  // the service when the scheme does not.
  void addMessenger(const VCardProperty& property) {
    TextString uri = stringByTrimmingWhiteSpaces(unescapeVCardText(property.value));
    std::size_t colon = uri.find(u':');
    TextString scheme =
        colon == TextString::npos ? TextString() : normalizedLowercaseString(uri.substr(0, colon));
    TextString account = colon == TextString::npos ? uri : uri.substr(colon + 1);
    if (std::size_t contact = account.find(u"contact="); contact != TextString::npos)
      account = account.substr(contact + 8);
    TextString service = normalizedLowercaseString(
        fromUtf8(property.parameter("X-SERVICE-TYPE").value_or(std::string())));
    for (const Messenger& messenger : kMessengers) {
      bool matches = false;
      for (std::u16string_view candidate : messenger.schemes)
        if (!candidate.empty() && (candidate == scheme || candidate == service)) matches = true;
      if (matches) return addEntryValue(messenger.property, property, account, kPlaceLabels);
    }
  }

  const VCard& card_;
  Person person_;
  std::map<std::string, MultiValue> multiValues_;
  std::optional<TextString> formattedName_;
  std::optional<TextString> organization_;
};

const TextString* stringOf(const PersonValue& value) {
  const auto* plain = std::get_if<PropertyValue>(&value);
  return plain ? plain->string() : nullptr;
}

TextString plainText(std::optional<std::string_view> name, const PropertyValue& value);

TextString plainDictionaryText(std::optional<std::string_view> name,
                               const PropertyDictionary& dictionary) {
  if (name && *name == PersonProperty::Address) return formattedPostalAddress(dictionary);
  TextString text;
  bool first = true;
  for (const auto& [key, item] : dictionary) {
    if (!first) text += u'\n';
    text += plainText(std::nullopt, item);
    first = false;
  }
  return text;
}

TextString plainText(std::optional<std::string_view> name, const PropertyValue& value) {
  if (const TextString* text = value.string()) return *text;
  if (const PropertyDictionary* dictionary = value.dictionary())
    return plainDictionaryText(name, *dictionary);
  return {};
}

// The value's own textual form for the labelled text.
TextString describe(const PropertyValue& value) {
  if (const TextString* text = value.string()) return *text;
  if (const std::int64_t* integer = value.integer()) return fromAscii(std::to_string(*integer));
  if (const Date* date = value.date()) {
    std::time_t seconds = static_cast<std::time_t>(date->microseconds / 1000000);
    std::tm time{};
    gmtime_r(&seconds, &time);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S +0000", &time);
    return fromAscii(buffer);
  }
  return {};
}

TextString labelledPlain(const std::optional<TextString>& name, const PropertyValue& value) {
  if (const PropertyDictionary* dictionary = value.dictionary()) {
    TextString text;
    for (const auto& [key, item] : *dictionary) text += labelledPlain(fromUtf8(key), item);
    return text;
  }
  if (name) {
    std::string key = toUtf8(*name);
    for (std::string_view skipped : kUnlabelledProperties)
      if (key == skipped) return {};
  }
  return (name ? unwrappedLabel(*name) : TextString(u"(null)")) + u":\t" + describe(value) + u"\n";
}

}  // namespace

TextString wrappedLabel(TextView label) {
  return TextString(kLabelStart) + TextString(label) + TextString(kLabelEnd);
}

TextString unwrappedLabel(TextView label) {
  TextString text = stringByReplacingString(label, kLabelStart, u"");
  return stringByReplacingString(text, kLabelEnd, u"");
}

std::optional<Person> Person::initWithData(Bytes bytes, std::string_view name) {
  std::optional<std::vector<VCard>> cards = parseVCards(bytes, name);
  if (!cards || cards->empty()) return std::nullopt;
  return fromVCard(cards->front());
}

std::optional<Person> Person::initWithContentsOfFile(const std::string& path) {
  std::optional<FileBytes> bytes = FileBytes::read(path).take();
  if (!bytes) return std::nullopt;
  return initWithData(bytes->bytes(), path);
}

Person Person::fromVCard(const VCard& card) { return PersonBuilder(card).build(); }

const PersonValue* Person::valueForProperty(std::string_view name) const {
  auto found = values_.find(name);
  return found == values_.end() ? nullptr : &found->second;
}

void Person::setValue(std::string_view name, PersonValue value) {
  values_.insert_or_assign(std::string(name), std::move(value));
}

ReaderOutput Person::metaData() const {
  ReaderOutput output;
  TextString& text = output.text.emplace();
  for (std::string_view name : kTextProperties) {
    const PersonValue* value = valueForProperty(name);
    if (!value) continue;
    text += stringForProperty(name, *value);
    text += u'\n';
  }
  output.emailAddresses = emailAdresses();
  output.phoneNumbers = phoneNumbers();
  output.url = homePage();
  return output;
}

std::optional<std::vector<TextString>> Person::stringList(std::string_view name) const {
  const PersonValue* value = valueForProperty(name);
  if (!value) return std::nullopt;
  if (const TextString* text = stringOf(*value)) return std::vector<TextString>{*text};
  const auto* multi = std::get_if<MultiValue>(value);
  if (!multi || multi->entries.empty()) return std::nullopt;
  std::vector<TextString> list;
  for (const MultiValue::Entry& entry : multi->entries)
    if (const TextString* text = entry.value.string()) list.push_back(*text);
  return list;
}

std::optional<std::vector<TextString>> Person::emailAdresses() const {
  return stringList(PersonProperty::Email);
}

std::optional<std::vector<TextString>> Person::phoneNumbers() const {
  return stringList(PersonProperty::Phone);
}

std::optional<TextString> Person::homePage() const {
  if (valueForProperty(PersonProperty::HomePage))
    return stringForProperty(PersonProperty::HomePage);
  const PersonValue* urls = valueForProperty(PersonProperty::URLs);
  if (!urls) return std::nullopt;
  if (const auto* multi = std::get_if<MultiValue>(urls)) {
    if (multi->entries.empty() || !multi->entries.front().value.string()) return std::nullopt;
    return *multi->entries.front().value.string();
  }
  if (const TextString* text = stringOf(*urls)) return *text;
  return std::nullopt;
}

std::optional<TextString> Person::primaryEmail() const {
  const PersonValue* value = valueForProperty(PersonProperty::Email);
  if (!value) return std::nullopt;
  const auto* multi = std::get_if<MultiValue>(value);
  if (!multi) {
    const TextString* text = stringOf(*value);
    return text ? std::optional(*text) : std::nullopt;
  }
  if (multi->entries.empty()) return std::nullopt;
  const MultiValue::Entry* chosen = &multi->entries.front();
  if (multi->primaryIdentifier) {
    chosen = nullptr;
    for (const MultiValue::Entry& entry : multi->entries)
      if (entry.identifier == *multi->primaryIdentifier) chosen = &entry;
    if (!chosen)
      return multi->entries.front().value.string()
                 ? std::optional(*multi->entries.front().value.string())
                 : std::nullopt;
  }
  const TextString* text = chosen->value.string();
  return text ? std::optional(*text) : std::nullopt;
}

std::optional<TextString> Person::proposedName() const {
  auto text = [this](std::string_view name) -> std::optional<TextString> {
    const PersonValue* value = valueForProperty(name);
    const TextString* string = value ? stringOf(*value) : nullptr;
    return string ? std::optional(*string) : std::nullopt;
  };
  std::optional<TextString> first = text(PersonProperty::First);
  std::optional<TextString> last = text(PersonProperty::Last);
  std::optional<TextString> middle = text(PersonProperty::Middle);
  std::optional<TextString> name;
  if (first && last) {
    name = middle ? *first + u" " + *middle + u" " + *last : *first + u" " + *last;
  } else if (first || last) {
    name = first ? first : last;
  } else {
    name = text(PersonProperty::Nickname);
  }
  std::optional<TextString> organization = text(PersonProperty::Organization);
  if (!name) return organization ? organization : primaryEmail();
  if (organization && !showAsPerson()) return *organization + u" - " + *name;
  return name;
}

static std::int64_t personFlags(const Person& person) {
  const PersonValue* value = person.valueForProperty(PersonProperty::PersonFlags);
  const auto* plain = value ? std::get_if<PropertyValue>(value) : nullptr;
  if (!plain) return 0;
  if (const std::int64_t* flags = plain->integer()) return *flags;
  return 0;
}

bool Person::showAsCompany() const { return (personFlags(*this) & 7) == 1; }
bool Person::showAsPerson() const { return (personFlags(*this) & 7) == 0; }

TextString Person::stringForProperty(std::optional<std::string_view> name,
                                     const PersonValue& value) const {
  if (const auto* multi = std::get_if<MultiValue>(&value)) {
    TextView separator = name && *name == PersonProperty::Address ? u"\n\n" : u"\n";
    TextString text;
    for (std::size_t i = 0; i < multi->entries.size(); ++i) {
      if (i > 0) text += separator;
      text += plainText(name, multi->entries[i].value);
    }
    return text;
  }
  return plainText(name, std::get<PropertyValue>(value));
}

TextString Person::stringForProperty(std::string_view name) const {
  const PersonValue* value = valueForProperty(name);
  return value ? stringForProperty(name, *value) : TextString();
}

TextString labelledStringForProperty(const std::optional<TextString>& name,
                                     const PersonValue& value) {
  if (const auto* multi = std::get_if<MultiValue>(&value)) {
    TextString text;
    for (const MultiValue::Entry& entry : multi->entries)
      text += labelledPlain(entry.label, entry.value);
    return text;
  }
  return labelledPlain(name, std::get<PropertyValue>(value));
}

}  // namespace ulvek
