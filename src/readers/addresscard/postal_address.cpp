#include "readers/addresscard/postal_address.h"

#include <array>
#include <string_view>
#include <vector>

#include "readers/addresscard/person.h"
#include "text/string_utilities.h"

namespace ulvek {

namespace {

// How a country orders the city line.
enum class Layout {
  CityStateZIP,  // "Cupertino, CA 95014"
  ZIPCity,       // "10115 Berlin", region on a line of its own
  CityThenZIP,   // "London" then "SW1A 1AA"
  Generic,       // street, postal code and city, region, country
};

struct CountryRow {
  std::u16string_view code;
  Layout layout;
};

constexpr std::array<CountryRow, 22> kCountryLayouts = {{
    {u"us", Layout::CityStateZIP}, {u"ca", Layout::CityStateZIP}, {u"au", Layout::CityStateZIP},
    {u"gb", Layout::CityThenZIP},  {u"ie", Layout::CityThenZIP},  {u"de", Layout::ZIPCity},
    {u"at", Layout::ZIPCity},      {u"ch", Layout::ZIPCity},      {u"fr", Layout::ZIPCity},
    {u"nl", Layout::ZIPCity},      {u"be", Layout::ZIPCity},      {u"it", Layout::ZIPCity},
    {u"es", Layout::ZIPCity},      {u"pt", Layout::ZIPCity},      {u"dk", Layout::ZIPCity},
    {u"se", Layout::ZIPCity},      {u"no", Layout::ZIPCity},      {u"fi", Layout::ZIPCity},
    {u"pl", Layout::ZIPCity},      {u"cz", Layout::ZIPCity},      {u"lu", Layout::ZIPCity},
    {u"li", Layout::ZIPCity},
}};

struct CountryName {
  std::u16string_view name;  // lower case
  std::u16string_view code;
};

constexpr std::array<CountryName, 30> kCountryNames = {{
    {u"usa", u"us"},         {u"u.s.a.", u"us"},        {u"us", u"us"},
    {u"u.s.", u"us"},        {u"united states", u"us"}, {u"united states of america", u"us"},
    {u"canada", u"ca"},      {u"australia", u"au"},     {u"united kingdom", u"gb"},
    {u"uk", u"gb"},          {u"great britain", u"gb"}, {u"england", u"gb"},
    {u"ireland", u"ie"},     {u"germany", u"de"},       {u"deutschland", u"de"},
    {u"austria", u"at"},     {u"österreich", u"at"},    {u"switzerland", u"ch"},
    {u"schweiz", u"ch"},     {u"suisse", u"ch"},        {u"france", u"fr"},
    {u"netherlands", u"nl"}, {u"nederland", u"nl"},     {u"belgium", u"be"},
    {u"italy", u"it"},       {u"italia", u"it"},        {u"spain", u"es"},
    {u"españa", u"es"},      {u"sweden", u"se"},        {u"denmark", u"dk"},
}};

TextString part(const PropertyDictionary& address, std::string_view key) {
  const PropertyValue* value = find(address, key);
  if (!value || !value->string()) return {};
  return stringByTrimmingWhiteSpaces(*value->string());
}

TextString joined(std::initializer_list<TextView> parts, TextView separator) {
  TextString result;
  for (TextView piece : parts) {
    if (piece.empty()) continue;
    if (!result.empty()) result += separator;
    result += piece;
  }
  return result;
}

Layout layoutOf(TextView code) {
  for (const CountryRow& row : kCountryLayouts)
    if (row.code == code) return row.layout;
  return Layout::Generic;
}

}  // namespace

TextString countryCodeOf(TextView codeOrName) {
  TextString lower = normalizedLowercaseString(stringByTrimmingWhiteSpaces(codeOrName));
  for (const CountryName& row : kCountryNames)
    if (row.name == lower) return TextString(row.code);
  for (const CountryRow& row : kCountryLayouts)
    if (row.code == lower) return lower;
  return {};
}

TextString formattedPostalAddress(const PropertyDictionary& address) {
  TextString street = part(address, AddressKey::Street);
  TextString city = part(address, AddressKey::City);
  TextString state = part(address, AddressKey::State);
  TextString zip = part(address, AddressKey::ZIP);
  TextString country = part(address, AddressKey::Country);
  TextString code = countryCodeOf(part(address, AddressKey::CountryCode));
  if (code.empty()) code = countryCodeOf(country);

  std::vector<TextString> lines{street};
  switch (layoutOf(code)) {
    case Layout::CityStateZIP:
      lines.push_back(joined({joined({city, state}, u", "), zip}, u" "));
      break;
    case Layout::CityThenZIP:
      lines.insert(lines.end(), {city, state, zip});
      break;
    case Layout::ZIPCity:
    case Layout::Generic:
      lines.insert(lines.end(), {joined({zip, city}, u" "), state});
      break;
  }
  lines.push_back(country);
  TextString result;
  for (const TextString& line : lines) {
    if (line.empty()) continue;
    if (!result.empty()) result += u'\n';
    result += line;
  }
  return result;
}

}  // namespace ulvek
