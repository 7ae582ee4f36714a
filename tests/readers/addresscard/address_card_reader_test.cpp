#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "fixture_files.h"
#include "readers/addresscard/address_card_reader.h"
#include "readers/addresscard/person.h"
#include "readers/addresscard/postal_address.h"
#include "readers/addresscard/vcard.h"
#include "test_support.h"

namespace ulvek {
namespace {

namespace fs = std::filesystem;
using testing::CapturedLog;

Bytes bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::string card(std::string_view lines, std::string_view version = "3.0") {
  return "BEGIN:VCARD\r\nVERSION:" + std::string(version) + "\r\n" + std::string(lines) +
         "END:VCARD\r\n";
}

std::string textContent(const Person& person) {
  std::optional<TextString> text = person.metaData().text;
  return text ? toUtf8(*text) : "(none)";
}

Person personOf(std::string_view data) {
  std::optional<Person> person = Person::initWithData(bytesOf(data));
  EXPECT_TRUE(person) << data;
  return person ? std::move(*person) : Person();
}

TEST(VCard, ValuesDecodeAsTheLineSays) {
  struct Row {
    std::string name;
    std::string data;
    std::string expectedText;
  };
  const std::vector<Row> rows = {
      {"folded line", card("N:Lee;An\r\n n;;;\r\n"), "Ann\nLee\n"},
      {"folded with tab", card("NOTE:one\r\n\ttwo\r\n"), "onetwo\n"},
      {"escapes", card("NOTE:a\\, b\\; c\\nd\\\\e\r\n"), "a, b; c\nd\\e\n"},
      {"quoted-printable soft break",
       card("NOTE;ENCODING=QUOTED-PRINTABLE;CHARSET=UTF-8:Gr=C3=BC=\r\n=C3=9Fe\r\n", "2.1"),
       "Grüße\n"},
      {"bare 2.1 encoding", card("NOTE;QUOTED-PRINTABLE:a=3Db\r\n", "2.1"), "a=b\n"},
      {"latin-1 charset", card("NOTE;CHARSET=ISO-8859-1;ENCODING=QUOTED-PRINTABLE:M=FCller\r\n"),
       "Müller\n"},
      {"windows-1252 without charset", card("NOTE:\x93quoted\x94\r\n", "2.1"),
       "\xE2\x80\x9Cquoted\xE2\x80\x9D\n"},
      {"unknown charset falls back", card("NOTE;CHARSET=x-nothing:plain\r\n"), "plain\n"},
      {"base64 text", card("NOTE;ENCODING=b:aGVsbG8=\r\n"), "hello\n"},
      {"invalid base64 skipped", card("NOTE;ENCODING=b:a*b\r\nNICKNAME:Al\r\n"), "Al\n"},
      {"quoted parameter with colon", card("NOTE;X-A=\"a:b\":value\r\n"), "value\n"},
      {"lower-case names", card("note:small\r\n"), "small\n"},
      {"several middle names", card("N:Doe;John;Richter,James;;\r\n"),
       "John\nRichter James\nDoe\n"},
      {"only a formatted name", card("FN:Prince\r\n"), "Prince\n"},
      {"first card is the person", card("NICKNAME:one\r\n") + card("NICKNAME:two\r\n"), "one\n"},
      {"nested agent card skipped",
       card("NICKNAME:outer\r\nAGENT:\r\nBEGIN:VCARD\r\nNICKNAME:inner\r\nEND:VCARD\r\n"),
       "outer\n"},
      {"first of two names wins", card("ORG:One;Dept\r\nORG:Two\r\n"), "One\n"},
      {"no properties", card(""), ""},
  };
  for (const Row& row : rows) {
    CapturedLog log;
    EXPECT_EQ(textContent(personOf(row.data)), row.expectedText) << row.name;
  }
}

TEST(VCard, UTF16FilesAreRead) {
  std::string utf8 = card("N:Lee;Ann;;;\r\n");
  for (bool bigEndian : {false, true}) {
    for (bool bom : {true, false}) {
      std::string data;
      if (bom) data = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
      for (char c : utf8) {
        data += bigEndian ? std::string{'\0', c} : std::string{c, '\0'};
      }
      EXPECT_EQ(textContent(personOf(data)), "Ann\nLee\n") << bigEndian << bom;
    }
  }
}

TEST(VCard, DamagedCardsAnswerLess) {
  struct Row {
    std::string name;
    std::string data;
    bool readable;
    std::string logFragment;
  };
  const std::vector<Row> rows = {
      {"empty", "", false},
      {"no card", "hello world\n", false},
      {"unterminated card", "BEGIN:VCARD\nNICKNAME:x\n", true},
      {"truncated quoted-printable", card("NOTE;ENCODING=QUOTED-PRINTABLE:ab=\r\n=C"), true},
      {"invalid base64", card("NOTE;ENCODING=BASE64:@@@\r\n"), true, "Invalid base64 value"},
  };
  for (const Row& row : rows) {
    CapturedLog log;
    EXPECT_EQ(Person::initWithData(bytesOf(row.data)).has_value(), row.readable) << row.name;
    if (!row.logFragment.empty()) {
      EXPECT_TRUE(log.contains(row.logFragment)) << row.name;
    }
  }
}

TEST(VCard, HugeInputStaysCheap) {
  std::string many;
  for (int i = 0; i < 10000; ++i) many += card("NICKNAME:n" + std::to_string(i) + "\r\n");
  EXPECT_EQ(textContent(personOf(many)), "n0\n");

  std::string endless = "BEGIN:VCARD\r\nNOTE:x";
  for (int i = 0; i < 100000; ++i) endless += "\r\n y";
  EXPECT_EQ(textContent(personOf(endless)).size(), 100002u);

  std::string crowded = "BEGIN:VCARD\r\n";
  for (int i = 0; i < 30000; ++i) crowded += "EMAIL:a" + std::to_string(i) + "@x\r\n";
  CapturedLog log;
  std::optional<Person> person = Person::initWithData(bytesOf(crowded));
  ASSERT_TRUE(person);
  EXPECT_EQ(person->emailAdresses()->size(), 20000u);
  EXPECT_TRUE(log.contains("too many properties"));
}

// 90 MB of ";" in one ADR line made 5.6 GB of empty parts: parts are bounded, and the rest of
// a value past them is dropped.
TEST(VCard, StructuredValuesHaveBoundedParts) {
  const std::string separators(5'000'000, ';');
  struct Row {
    std::string name;
    TextString value;
    std::vector<TextString> parts;
  };
  std::vector<TextString> sixteen(kMaxVCardValueParts);
  sixteen.front() = u"a";
  const std::vector<Row> rows = {
      {"address",
       u"box;ext;street;city;state;zip;country",
       {u"box", u"ext", u"street", u"city", u"state", u"zip", u"country"}},
      {"escaped separator", u"a\\;b;c", {u"a;b", u"c"}},
      {"only separators", fromUtf8("a" + separators + "b"), sixteen},
  };
  for (const Row& row : rows) EXPECT_EQ(splitVCardValue(row.value, u';'), row.parts) << row.name;

  for (std::string_view property : {"ADR;TYPE=HOME:", "N:", "ORG:"}) {
    const auto start = std::chrono::steady_clock::now();
    const std::string data = card(std::string(property) + "x" + separators + "\r\n");
    EXPECT_TRUE(Person::initWithData(bytesOf(data))) << property;
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5)) << property;
  }
}

// Only the first 16 MiB of a vCard file are read, with a log line: the first card lies there.
TEST(AddressCardReader, LargeFilesAreReadInPart) {
  testing::TemporaryFolder folder;
  const std::string large =
      folder.write("large.vcf", card("FN:Ann Lee\r\nADR:" + std::string(17u << 20, ';') + "x\r\n"));
  CapturedLog log;
  const auto start = std::chrono::steady_clock::now();
  std::optional<ReaderOutput> output = addressCardReader().read(ReaderSource::file(large));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  ASSERT_TRUE(output);
  ASSERT_TRUE(output->text);
  EXPECT_NE(toUtf8(*output->text).find("Ann Lee"), std::string::npos) << toUtf8(*output->text);
  EXPECT_TRUE(log.contains("Address card read only in its first 16 MB: " + large + " (17 MB)"));
}

TEST(Person, CardAttributes) {
  Person person =
      personOf(card("N:Lee;Ann;;;\r\nORG:Acme\r\nEMAIL;TYPE=work;TYPE=pref:ann@acme.example\r\n"
                    "EMAIL;TYPE=home:ann@home.example\r\nTEL;TYPE=CELL:+1 555\r\n"
                    "item1.ADR;TYPE=WORK:;;1 Infinite Loop;Cupertino;CA;95014;USA\r\n"
                    "item1.X-ABADR:us\r\n"
                    "ADR;TYPE=HOME:;;Hauptstr. 1;Berlin;;10115;Deutschland\r\n"
                    "X-AIM:annlee\r\nIMPP;X-SERVICE-TYPE=Jabber:xmpp:ann@jabber.example\r\n"
                    "IMPP:aim:annlee\r\nitem2.URL:http://acme.example\r\n"
                    "item2.X-ABLabel:_$!<HomePage>!$_\r\nNOTE:Hi\r\n"));
  EXPECT_EQ(textContent(person),
            "Ann\nLee\nAcme\n1 Infinite Loop\nCupertino, CA 95014\nUSA\n\nHauptstr. 1\n10115 "
            "Berlin\nDeutschland\n+1 555\nannlee\nann@jabber.example\nHi\n");
  ReaderOutput output = person.metaData();
  EXPECT_EQ(output.emailAddresses, (TextList{u"ann@acme.example", u"ann@home.example"}));
  EXPECT_EQ(output.phoneNumbers, TextList{u"+1 555"});
  EXPECT_EQ(output.url, u"http://acme.example");
  EXPECT_EQ(person.primaryEmail(), u"ann@acme.example");

  Person bare = personOf(card("NICKNAME:x\r\n"));
  EXPECT_FALSE(bare.metaData().emailAddresses);
  EXPECT_FALSE(bare.metaData().url);
}

TEST(Person, ProposedName) {
  struct Row {
    std::string name;
    std::string lines;
    std::optional<TextString> expected;
  };
  const std::vector<Row> rows = {
      {"company flag", "N:Lee;Ann;;;\r\nORG:Acme\r\nX-ABShowAs:COMPANY\r\n", u"Acme - Ann Lee"},
      {"person", "N:Lee;Ann;;;\r\nORG:Acme\r\n", u"Ann Lee"},
      {"middle name", "N:Lee;Ann;B.;;\r\n", u"Ann B. Lee"},
      {"last only", "N:Lee;;;;\r\n", u"Lee"},
      {"nickname", "NICKNAME:Al\r\n", u"Al"},
      {"organisation", "ORG:Acme\r\nX-ABShowAs:COMPANY\r\n", u"Acme"},
      {"primary e-mail", "EMAIL:a@x\r\nEMAIL;TYPE=pref:b@x\r\n", u"b@x"},
      {"nothing", "NOTE:n\r\n", std::nullopt},
  };
  for (const Row& row : rows)
    EXPECT_EQ(personOf(card(row.lines)).proposedName(), row.expected) << row.name;
}

TEST(Person, LabelledText) {
  Person person = personOf(card(
      "EMAIL;TYPE=HOME:a@x\r\nitem1.TEL:1\r\nitem1.X-ABLabel:Custom\r\nUID:u\r\nREV:20120606\r\n"));
  EXPECT_EQ(
      toUtf8(labelledStringForProperty(u"Email", *person.valueForProperty(PersonProperty::Email))),
      "Home:\ta@x\n");
  EXPECT_EQ(
      toUtf8(labelledStringForProperty(u"Phone", *person.valueForProperty(PersonProperty::Phone))),
      "Custom:\t1\n");
  for (std::string_view hidden : {PersonProperty::UID, PersonProperty::Modification}) {
    EXPECT_EQ(labelledStringForProperty(fromUtf8(hidden), *person.valueForProperty(hidden)), u"");
  }
}

TEST(PostalAddress, FollowsTheCountry) {
  struct Row {
    std::string name;
    PropertyDictionary address;
    TextString expected;
  };
  auto address = [](TextView street, TextView city, TextView state, TextView zip,
                    TextView country) {
    return PropertyDictionary{{"Street", PropertyValue(street)},
                              {"City", PropertyValue(city)},
                              {"State", PropertyValue(state)},
                              {"ZIP", PropertyValue(zip)},
                              {"Country", PropertyValue(country)}};
  };
  const std::vector<Row> rows = {
      {"us", address(u"1 Loop", u"Cupertino", u"CA", u"95014", u"USA"),
       u"1 Loop\nCupertino, CA 95014\nUSA"},
      {"de", address(u"Str. 1", u"Berlin", u"", u"10115", u"Germany"),
       u"Str. 1\n10115 Berlin\nGermany"},
      {"gb", address(u"10 Downing St", u"London", u"", u"SW1A 2AA", u"UK"),
       u"10 Downing St\nLondon\nSW1A 2AA\nUK"},
      {"unknown", address(u"Road 5", u"Town", u"Region", u"123", u"Elsewhere"),
       u"Road 5\n123 Town\nRegion\nElsewhere"},
      {"empty", {}, u""},
  };
  for (const Row& row : rows)
    EXPECT_EQ(formattedPostalAddress(row.address), row.expected) << row.name;
}

// The cards of tests/data/vcf (made by make_fixtures.py there), each against its .expect.json.
TEST(AddressCardReader, ReadsCards) {
  const std::vector<fs::path> cards = testing::filesOf(testing::dataPath() / "vcf", {".vcf"});
  ASSERT_GE(cards.size(), 7u);
  auto strings = [](const std::optional<TextList>& value) {
    std::vector<std::string> list;
    for (const TextString& item : value.value_or(TextList())) list.push_back(toUtf8(item));
    return list;
  };
  for (const fs::path& path : cards) {
    SCOPED_TRACE(path.filename().string());
    auto expect = nlohmann::json::parse(testing::readFile(path.string() + ".expect.json"));
    CapturedLog log;
    std::optional<ReaderOutput> output =
        addressCardReader().read(ReaderSource::file(path.string()));
    if (!expect.value("readable", true)) {
      EXPECT_FALSE(output);
      continue;
    }
    ASSERT_TRUE(output);
    ASSERT_TRUE(output->text);
    EXPECT_EQ(toUtf8(*output->text), expect["text"].get<std::string>());
    EXPECT_EQ(strings(output->emailAddresses), expect.value("emails", std::vector<std::string>{}));
    EXPECT_EQ(strings(output->phoneNumbers), expect.value("phones", std::vector<std::string>{}));
    EXPECT_EQ(toUtf8(output->url.value_or(TextString())), expect.value("url", ""));

    std::optional<Person> person = Person::initWithContentsOfFile(path.string());
    ASSERT_TRUE(person);
    auto utf8 = [](const std::optional<TextString>& value) {
      return value ? toUtf8(*value) : std::string();
    };
    EXPECT_EQ(utf8(person->proposedName()), expect.value("proposedName", ""));
    EXPECT_EQ(utf8(person->primaryEmail()), expect.value("primaryEmail", ""));
  }
}

TEST(AddressCardReader, ReadsCorpusCards) {
  ULVEK_REQUIRE_CORPUS();
  struct Row {
    std::string file;
    std::string fragment;
  };
  const std::vector<Row> rows = {
      {"John_Doe_IPHONE.vcf", "John\nRichter James\nDoe\nJohny\nIBM\n"},
      {"made-macab-utf16.vcf", "Silicon Alley 5,\nNew York, New York 12345\n"},
      {"made-v40-three-cards.vcf", "王"},
      {"outlook-2003.vcf", "This is the note field!!\nSecond line\n\nThird line is empty\n"},
  };
  for (const Row& row : rows) {
    auto output = addressCardReader().read(
        ReaderSource::file((testing::corpusPath() / "docs/vcf" / row.file).string()));
    ASSERT_TRUE(output) << row.file;
    ASSERT_TRUE(output->text) << row.file;
    EXPECT_NE(toUtf8(*output->text).find(row.fragment), std::string::npos) << row.file << "\n"
                                                                           << toUtf8(*output->text);
  }
}

}  // namespace
}  // namespace ulvek
