#include "text/character_tables.h"

#include <unicode/uchar.h>
#include <unicode/unorm.h>
#include <unicode/unorm2.h>
#include <unicode/uscript.h>
#include <unicode/ustring.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "base/ascii.h"
#include "text/string_utilities.h"

namespace ulvek {

namespace {

// ---- Reps ----

void fillRep(CharacterSetRep& rep, std::uint32_t categoryMask) {
  std::memset(rep.bytes, 0, sizeof rep.bytes);
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    if (U_GET_GC_MASK(static_cast<UChar32>(c)) & categoryMask) rep.insert(static_cast<char16_t>(c));
  }
}

void insertAll(CharacterSetRep& rep, std::initializer_list<char16_t> units) {
  for (char16_t c : units) rep.insert(c);
}

void buildReps(CharacterTables& t) {
  fillRep(t.whiteSpace, U_GC_ZS_MASK);
  // Spaces plus NUL and tab: NUL pads fixed-size fields in the files we read.
  insertAll(t.whiteSpace, {0x0000, 0x0009});

  fillRep(t.unicodeWhiteSpaceAndNewline, U_GC_Z_MASK);
  insertAll(t.unicodeWhiteSpaceAndNewline, {0x0009, 0x000A, 0x000B, 0x000C, 0x000D, 0x0085});
  t.whiteSpaceAndNewline = t.unicodeWhiteSpaceAndNewline;
  // Units that separate words in extracted text as much as a space does.
  insertAll(t.whiteSpaceAndNewline, {0x0000, 0x000C, 0x000A, 0x000D, 0x2028, 0x2029, 0x0003, 0xFFFC,
                                     0x0009, 0xFEFF, 0x00A0});

  fillRep(t.letter, U_GC_L_MASK | U_GC_M_MASK);
  fillRep(t.alphaNumeric, U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK);
  fillRep(t.decimalDigit, U_GC_ND_MASK);
  fillRep(t.lowercaseLetter, U_GC_LL_MASK);
  fillRep(t.uppercaseLetter, U_GC_LU_MASK | U_GC_LT_MASK);
  std::memset(t.empty.bytes, 0, sizeof t.empty.bytes);
}

char16_t firstMember(const CharacterSetRep& rep) {
  for (std::size_t i = 0; i < CharacterSetRep::kByteCount; ++i) {
    if (std::uint8_t byte = rep.bytes[i]) {
      for (int bit = 0; bit < 8; ++bit) {
        if (byte & (1u << bit)) return static_cast<char16_t>(i * 8 + bit);
      }
    }
  }
  return 0;
}

char16_t lastMember(const CharacterSetRep& rep) {
  for (std::size_t i = CharacterSetRep::kByteCount; i-- > 0;) {
    if (std::uint8_t byte = rep.bytes[i]) {
      for (int bit = 7; bit >= 0; --bit) {
        if (byte & (1u << bit)) return static_cast<char16_t>(i * 8 + bit);
      }
    }
  }
  return 0;
}

// ---- Case and fold tables ----

using CaseMapping = int32_t (*)(UChar*, int32_t, const UChar*, int32_t, const char*, UErrorCode*);

// Entry c becomes the full (root locale) case mapping of c when that is exactly one unit.
void fillCaseTable(char16_t* table, const CharacterSetRep& governing, CaseMapping map) {
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    table[c] = static_cast<char16_t>(c);
    if (!governing.contains(static_cast<char16_t>(c))) continue;
    UChar source = static_cast<UChar>(c);
    UChar result[8];
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = map(result, 8, &source, 1, "", &status);
    if (U_SUCCESS(status) && length == 1) table[c] = result[0];
  }
}

int32_t toLower(UChar* dest, int32_t capacity, const UChar* src, int32_t length, const char* locale,
                UErrorCode* status) {
  return u_strToLower(dest, capacity, src, length, locale, status);
}

int32_t toUpper(UChar* dest, int32_t capacity, const UChar* src, int32_t length, const char* locale,
                UErrorCode* status) {
  return u_strToUpper(dest, capacity, src, length, locale, status);
}

class DiacriticFolder {
 public:
  DiacriticFolder() {
    UErrorCode status = U_ZERO_ERROR;
    nfd_ = unorm2_getNFDInstance(&status);
    nfc_ = unorm2_getNFCInstance(&status);
    if (U_FAILURE(status)) nfd_ = nfc_ = nullptr;
  }

  // The diacritic-insensitive fold of one letter, when it is exactly one unit.
  std::optional<char16_t> fold(char16_t c) const {
    if (!nfd_) return std::nullopt;
    std::optional<char16_t> stripped = stripMarks(c);
    if (!stripped) return std::nullopt;
    return baseOfLetterWithMark(*stripped).value_or(*stripped);
  }

 private:
  // Decompose, drop the combining diacritics, recompose.
  std::optional<char16_t> stripMarks(char16_t c) const {
    UChar source = c;
    UChar decomposed[32];
    UErrorCode status = U_ZERO_ERROR;
    int32_t length = unorm2_normalize(nfd_, &source, 1, decomposed, 32, &status);
    if (U_FAILURE(status)) return std::nullopt;
    if (length == 1 && decomposed[0] == c) return c;

    UChar kept[32];
    int32_t keptLength = 0;
    for (int32_t i = 0; i < length;) {
      UChar32 cp;
      U16_NEXT(decomposed, i, length, cp);
      bool isDiacriticMark =
          (U_GET_GC_MASK(cp) & U_GC_M_MASK) && u_hasBinaryProperty(cp, UCHAR_DIACRITIC);
      if (isDiacriticMark) continue;
      U16_APPEND_UNSAFE(kept, keptLength, cp);
    }
    if (keptLength == 0) return std::nullopt;
    UChar composed[32];
    length = unorm2_normalize(nfc_, kept, keptLength, composed, 32, &status);
    if (U_FAILURE(status) || length != 1) return std::nullopt;
    return composed[0];
  }

  // Latin letters such as o with stroke or l with stroke have no decomposition, yet readers take
  // them for accented letters; their character name ("... LETTER O WITH STROKE") names the base.
  // Other scripts keep such letters: there they are letters of their own (Ukrainian ghe with
  // upturn, Kazakh letters with descender).
  std::optional<char16_t> baseOfLetterWithMark(char16_t c) const {
    UErrorCode status = U_ZERO_ERROR;
    UChar buffer[8];
    if (unorm2_getDecomposition(nfd_, c, buffer, 8, &status) > 0) return std::nullopt;
    status = U_ZERO_ERROR;
    if (uscript_getScript(c, &status) != USCRIPT_LATIN) return std::nullopt;
    char name[128];
    status = U_ZERO_ERROR;
    int32_t length = u_charName(c, U_UNICODE_CHAR_NAME, name, sizeof name, &status);
    if (U_FAILURE(status) || length <= 0) return std::nullopt;
    std::string_view full(name, static_cast<std::size_t>(length));
    std::size_t with = full.find(" WITH ");
    // "D WITH SMALL LETTER Z" is a digraph, not a D with a mark.
    if (with == std::string_view::npos || full.find(" LETTER ") > with ||
        full.find("LETTER", with) != std::string_view::npos) {
      return std::nullopt;
    }
    std::string base(full.substr(0, with));
    status = U_ZERO_ERROR;
    UChar32 baseCharacter = u_charFromName(U_UNICODE_CHAR_NAME, base.c_str(), &status);
    if (U_FAILURE(status) || baseCharacter < 0 || baseCharacter > 0xFFFF) return std::nullopt;
    if (!(U_GET_GC_MASK(baseCharacter) & U_GC_L_MASK)) return std::nullopt;
    return static_cast<char16_t>(baseCharacter);
  }

  const UNormalizer2* nfd_ = nullptr;
  const UNormalizer2* nfc_ = nullptr;
};

void fillFoldTable(char16_t* table, const CharacterSetRep& letters) {
  DiacriticFolder folder;
  for (std::uint32_t c = 0; c < 0x10000; ++c) {
    char16_t unit = static_cast<char16_t>(c);
    table[c] = unit;
    if (!letters.contains(unit)) continue;
    if (std::optional<char16_t> folded = folder.fold(unit)) table[c] = *folded;
  }
}

}  // namespace

std::unique_ptr<CharacterTables> computeCharacterTables() {
  // Value-initialised, so that padding is zero and the embedded bytes are reproducible.
  auto t = std::make_unique<CharacterTables>();
  buildReps(*t);
  t->firstLetterCharacter = firstMember(t->letter);
  t->lastLetterCharacter = lastMember(t->letter);
  fillCaseTable(t->lower, t->uppercaseLetter, toLower);
  fillCaseTable(t->upper, t->lowercaseLetter, toUpper);
  fillFoldTable(t->umlauts, t->letter);
  for (std::size_t c = 0; c < kConversionTableSize; ++c) {
    t->lowerUmlauts[c] = t->lower[t->umlauts[c]];
    t->upperUmlauts[c] = t->upper[t->umlauts[c]];
  }
  return t;
}

namespace {

// ---- HTML entities ----

constexpr std::array<HtmlEntity, 246> kHtmlEntities{{
    {"nbsp", 0x00A0},    {"iexcl", 0x00A1},   {"cent", 0x00A2},    {"pound", 0x00A3},
    {"curren", 0x00A4},  {"yen", 0x00A5},     {"brvbar", 0x00A6},  {"sect", 0x00A7},
    {"uml", 0x00A8},     {"copy", 0x00A9},    {"ordf", 0x00AA},    {"laquo", 0x00AB},
    {"not", 0x00AC},     {"shy", 0x00AD},     {"reg", 0x00AE},     {"macr", 0x00AF},
    {"deg", 0x00B0},     {"plusmn", 0x00B1},  {"sup2", 0x00B2},    {"sup3", 0x00B3},
    {"acute", 0x00B4},   {"micro", 0x00B5},   {"para", 0x00B6},    {"middot", 0x00B7},
    {"sup1", 0x00B9},    {"ordm", 0x00BA},    {"raquo", 0x00BB},   {"frac14", 0x00BC},
    {"frac12", 0x00BD},  {"frac34", 0x00BE},  {"iquest", 0x00BF},  {"Agrave", 0x00C0},
    {"Aacute", 0x00C1},  {"Acirc", 0x00C2},   {"Atilde", 0x00C3},  {"Auml", 0x00C4},
    {"Aring", 0x00C5},   {"AElig", 0x00C6},   {"Ccedil", 0x00C7},  {"Egrave", 0x00C8},
    {"Eacute", 0x00C9},  {"Ecirc", 0x00CA},   {"Euml", 0x00CB},    {"Igrave", 0x00CC},
    {"Iacute", 0x00CD},  {"Icirc", 0x00CE},   {"Iuml", 0x00CF},    {"ETH", 0x00D0},
    {"Ntilde", 0x00D1},  {"Ograve", 0x00D2},  {"Oacute", 0x00D3},  {"Ocirc", 0x00D4},
    {"Otilde", 0x00D5},  {"Ouml", 0x00D6},    {"times", 0x00D7},   {"Oslash", 0x00D8},
    {"Ugrave", 0x00D9},  {"Uacute", 0x00DA},  {"Ucirc", 0x00DB},   {"Uuml", 0x00DC},
    {"Yacute", 0x00DD},  {"THORN", 0x00DE},   {"szlig", 0x00DF},   {"agrave", 0x00E0},
    {"aacute", 0x00E1},  {"acirc", 0x00E2},   {"atilde", 0x00E3},  {"auml", 0x00E4},
    {"aring", 0x00E5},   {"aelig", 0x00E6},   {"ccedil", 0x00E7},  {"egrave", 0x00E8},
    {"eacute", 0x00E9},  {"ecirc", 0x00EA},   {"euml", 0x00EB},    {"igrave", 0x00EC},
    {"iacute", 0x00ED},  {"icirc", 0x00EE},   {"iuml", 0x00EF},    {"eth", 0x00F0},
    {"ntilde", 0x00F1},  {"ograve", 0x00F2},  {"oacute", 0x00F3},  {"ocirc", 0x00F4},
    {"otilde", 0x00F5},  {"ouml", 0x00F6},    {"divide", 0x00F7},  {"oslash", 0x00F8},
    {"ugrave", 0x00F9},  {"uacute", 0x00FA},  {"ucirc", 0x00FB},   {"uuml", 0x00FC},
    {"yacute", 0x00FD},  {"thorn", 0x00FE},   {"yuml", 0x00FF},    {"OElig", 0x0152},
    {"oelig", 0x0153},   {"Scaron", 0x0160},  {"scaron", 0x0161},  {"Yuml", 0x0178},
    {"circ", 0x02C6},    {"tilde", 0x02DC},   {"Alpha", 0x0391},   {"Beta", 0x0392},
    {"Gamma", 0x0393},   {"Delta", 0x0394},   {"Epsilon", 0x0395}, {"Zeta", 0x0396},
    {"Eta", 0x0397},     {"Theta", 0x0398},   {"Iota", 0x0399},    {"Kappa", 0x039A},
    {"Lambda", 0x039B},  {"Mu", 0x039C},      {"Nu", 0x039D},      {"Xi", 0x039E},
    {"Omicron", 0x039F}, {"Pi", 0x03A0},      {"Rho", 0x03A1},     {"Sigma", 0x03A3},
    {"Tau", 0x03A4},     {"Upsilon", 0x03A5}, {"Phi", 0x03A6},     {"Chi", 0x03A7},
    {"Psi", 0x03A8},     {"Omega", 0x03A9},   {"alpha", 0x03B1},   {"beta", 0x03B2},
    {"gamma", 0x03B3},   {"delta", 0x03B4},   {"epsilon", 0x03B5}, {"zeta", 0x03B6},
    {"eta", 0x03B7},     {"theta", 0x03B8},   {"iota", 0x03B9},    {"kappa", 0x03BA},
    {"lambda", 0x03BB},  {"mu", 0x03BC},      {"nu", 0x03BD},      {"xi", 0x03BE},
    {"omicron", 0x03BF}, {"pi", 0x03C0},      {"rho", 0x03C1},     {"sigmaf", 0x03C2},
    {"sigma", 0x03C3},   {"tau", 0x03C4},     {"upsilon", 0x03C5}, {"phi", 0x03C6},
    {"chi", 0x03C7},     {"psi", 0x03C8},     {"omega", 0x03C9},   {"thetasym", 0x03D1},
    {"upsih", 0x03D2},   {"piv", 0x03D6},     {"ensp", 0x2002},    {"emsp", 0x2003},
    {"thinsp", 0x2009},  {"zwnj", 0x200C},    {"zwj", 0x200D},     {"lrm", 0x200E},
    {"rlm", 0x200F},     {"ndash", 0x2013},   {"mdash", 0x2014},   {"lsquo", 0x2018},
    {"rsquo", 0x2019},   {"sbquo", 0x201A},   {"ldquo", 0x201C},   {"rdquo", 0x201D},
    {"bdquo", 0x201E},   {"dagger", 0x2020},  {"Dagger", 0x2021},  {"bull", 0x2022},
    {"hellip", 0x2026},  {"permil", 0x2030},  {"prime", 0x2032},   {"Prime", 0x2033},
    {"lsaquo", 0x2039},  {"rsaquo", 0x203A},  {"oline", 0x203E},   {"frasl", 0x2044},
    {"euro", 0x20AC},    {"image", 0x2111},   {"weierp", 0x2118},  {"real", 0x211C},
    {"trade", 0x2122},   {"alefsym", 0x2135}, {"larr", 0x2190},    {"uarr", 0x2191},
    {"rarr", 0x2192},    {"darr", 0x2193},    {"harr", 0x2194},    {"crarr", 0x21B5},
    {"lArr", 0x21D0},    {"uArr", 0x21D1},    {"rArr", 0x21D2},    {"dArr", 0x21D3},
    {"hArr", 0x21D4},    {"forall", 0x2200},  {"part", 0x2202},    {"exist", 0x2203},
    {"empty", 0x2205},   {"nabla", 0x2207},   {"isin", 0x2208},    {"notin", 0x2209},
    {"ni", 0x220B},      {"prod", 0x220F},    {"sum", 0x2211},     {"minus", 0x2212},
    {"lowast", 0x2217},  {"radic", 0x221A},   {"prop", 0x221D},    {"infin", 0x221E},
    {"ang", 0x2220},     {"and", 0x2227},     {"or", 0x2228},      {"cap", 0x2229},
    {"cup", 0x222A},     {"int", 0x222B},     {"there4", 0x2234},  {"sim", 0x223C},
    {"cong", 0x2245},    {"asymp", 0x2248},   {"ne", 0x2260},      {"equiv", 0x2261},
    {"le", 0x2264},      {"ge", 0x2265},      {"sub", 0x2282},     {"sup", 0x2283},
    {"nsub", 0x2284},    {"sube", 0x2286},    {"supe", 0x2287},    {"oplus", 0x2295},
    {"otimes", 0x2297},  {"perp", 0x22A5},    {"sdot", 0x22C5},    {"lceil", 0x2308},
    {"rceil", 0x2309},   {"lfloor", 0x230A},  {"rfloor", 0x230B},  {"lang", 0x2329},
    {"rang", 0x232A},    {"loz", 0x25CA},     {"spades", 0x2660},  {"clubs", 0x2663},
    {"hearts", 0x2665},  {"diams", 0x2666},
}};

struct EntityIndex {
  char16_t lowest = 0;
  char16_t highest = 0;
  std::vector<std::uint16_t> byCharacter;  // position in kHtmlEntities, 0xFFFF for none
  std::vector<std::uint16_t> byName;       // positions sorted by name
};

const EntityIndex& entityIndex() {
  static const EntityIndex* index = [] {
    auto* built = new EntityIndex;
    auto [low, high] = std::minmax_element(
        kHtmlEntities.begin(), kHtmlEntities.end(),
        [](const HtmlEntity& a, const HtmlEntity& b) { return a.character < b.character; });
    built->lowest = low->character;
    built->highest = high->character;
    built->byCharacter.assign(built->highest - built->lowest + 1u, 0xFFFF);
    for (std::size_t i = 0; i < kHtmlEntities.size(); ++i) {
      built->byCharacter[kHtmlEntities[i].character - built->lowest] =
          static_cast<std::uint16_t>(i);
      built->byName.push_back(static_cast<std::uint16_t>(i));
    }
    std::sort(built->byName.begin(), built->byName.end(), [](std::uint16_t a, std::uint16_t b) {
      return kHtmlEntities[a].name < kHtmlEntities[b].name;
    });
    return built;
  }();
  return *index;
}

// ---- Loops ----

template <typename Predicate>
bool allUnits(TextView text, Predicate predicate) {
  for (char16_t c : text) {
    if (!predicate(c)) return false;
  }
  return true;
}

bool everyUnitIn(TextView text, const CharacterSetRep& rep) {
  return allUnits(text, [&rep](char16_t c) { return rep.contains(c); });
}

bool tableKeepsEveryUnit(TextView text, ConversionTable table) {
  return allUnits(text, [table](char16_t c) { return table[c] == c; });
}

TextString mapped(TextView text, ConversionTable table) {
  TextString result(text.size(), u'\0');
  char16_t* out = result.data();
  for (std::size_t i = 0; i < text.size(); ++i) out[i] = table[text[i]];
  return result;
}

template <typename Map>
TextString normalizedAndMapped(TextView text, Map map) {
  TextString result = normalizedString(text);
  for (char16_t& c : result) c = map(c);
  return result;
}

bool equalUnder(TextView a, TextView b, ConversionTable table) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (table[a[i]] != table[b[i]]) return false;
  }
  return true;
}

bool asciiEqualNoCase(TextView a, TextView b) {
  if (a.size() != b.size()) return false;
  const char16_t* fold = characterTables().umlauts;
  auto upperAscii = [fold](char16_t c) -> char16_t {
    char16_t folded = fold[c];
    if (folded >= 128) return u' ';
    return (folded >= u'a' && folded <= u'z') ? static_cast<char16_t>(folded - 32) : folded;
  };
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (upperAscii(a[i]) != upperAscii(b[i])) return false;
  }
  return true;
}

bool sameIgnoringAsciiCase(char16_t a, char16_t b) { return asciiLower(a) == asciiLower(b); }

std::optional<TextView> unitsInRange(TextView text, TextRange range) {
  if (range.location > text.size() || range.length > text.size() - range.location) {
    return std::nullopt;
  }
  return text.substr(range.location, range.length);
}

}  // namespace

#ifndef ULVEK_CHARACTER_TABLES_FROM_ICU
// The generated tables, embedded by character_tables_data.cpp.
extern "C" const unsigned char ulvek_character_tables_data[];
extern "C" const unsigned char ulvek_character_tables_data_end[];
#endif

const CharacterTables& buildCharacterTables() {
#ifndef ULVEK_CHARACTER_TABLES_FROM_ICU
  if (static_cast<std::size_t>(ulvek_character_tables_data_end - ulvek_character_tables_data) ==
      sizeof(CharacterTables))
    return *reinterpret_cast<const CharacterTables*>(ulvek_character_tables_data);
#endif
  static const CharacterTables* tables = computeCharacterTables().release();
  return *tables;
}

// ---- Entities ----

std::span<const HtmlEntity> htmlEntityTable() { return kHtmlEntities; }

void initConversionTables() {
  (void)AlphaNumericCharacterSetRep();
  (void)entityIndex();
}

std::optional<char16_t> htmlEntityCharacter(std::string_view name) {
  const EntityIndex& index = entityIndex();
  auto it = std::lower_bound(index.byName.begin(), index.byName.end(), name,
                             [](std::uint16_t position, std::string_view key) {
                               return kHtmlEntities[position].name < key;
                             });
  if (it == index.byName.end() || kHtmlEntities[*it].name != name) return std::nullopt;
  return kHtmlEntities[*it].character;
}

std::optional<char16_t> htmlEntityCharacter(TextView name) {
  // Entity names are short ASCII; anything else has no entity.
  char ascii[16];
  if (name.empty() || name.size() > sizeof ascii) return std::nullopt;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (name[i] >= 128) return std::nullopt;
    ascii[i] = static_cast<char>(name[i]);
  }
  return htmlEntityCharacter(std::string_view(ascii, name.size()));
}

std::optional<std::size_t> htmlEntityIndexForCharacter(char16_t c) {
  const EntityIndex& index = entityIndex();
  if (c < index.lowest || c > index.highest) return std::nullopt;
  std::uint16_t position = index.byCharacter[c - index.lowest];
  if (position == 0xFFFF) return std::nullopt;
  return position;
}

std::optional<std::string_view> htmlEntityName(char16_t c) {
  std::optional<std::size_t> position = htmlEntityIndexForCharacter(c);
  if (!position) return std::nullopt;
  return kHtmlEntities[*position].name;
}

// ---- Set tests ----

bool containsCharacterPartOfCharacterSetRep(TextView text, const CharacterSetRep* rep) {
  if (!rep) return false;
  for (char16_t c : text) {
    if (rep->contains(c)) return true;
  }
  return false;
}

bool containsAlphaNumCharacter(TextView text) {
  return containsCharacterPartOfCharacterSetRep(text, AlphaNumericCharacterSetRep());
}
bool containsAlphaCharacter(TextView text) {
  return containsCharacterPartOfCharacterSetRep(text, LetterCharacterSetRep());
}
bool containsWhiteCharacter(TextView text) {
  return containsCharacterPartOfCharacterSetRep(text, WhiteSpaceAndNewlineCharacterSetRep());
}
bool containsDigitCharacter(TextView text) {
  return containsCharacterPartOfCharacterSetRep(text, DecimalDigitCharacterSetRep());
}

std::size_t countCharactersPartOfCharacterSetRep(TextView text, const CharacterSetRep* rep) {
  if (!rep) return 0;
  std::size_t count = 0;
  for (char16_t c : text) count += rep->contains(c);
  return count;
}

std::size_t countAlphaNumCharacters(TextView text) {
  return countCharactersPartOfCharacterSetRep(text, AlphaNumericCharacterSetRep());
}
std::size_t countAlphaCharacters(TextView text) {
  return countCharactersPartOfCharacterSetRep(text, LetterCharacterSetRep());
}
std::size_t countWhiteCharacters(TextView text) {
  return countCharactersPartOfCharacterSetRep(text, WhiteSpaceAndNewlineCharacterSetRep());
}
std::size_t countDigitCharacters(TextView text) {
  return countCharactersPartOfCharacterSetRep(text, DecimalDigitCharacterSetRep());
}

bool isSpaceString(TextView text) { return everyUnitIn(text, *WhiteSpaceCharacterSetRep()); }
bool isWhiteString(TextView text) {
  return everyUnitIn(text, *WhiteSpaceAndNewlineCharacterSetRep());
}
bool isDigitString(TextView text) {
  return !text.empty() && everyUnitIn(text, *DecimalDigitCharacterSetRep());
}
bool isAlphaString(TextView text) {
  return !text.empty() && everyUnitIn(text, *LetterCharacterSetRep());
}
bool isAlphaNumString(TextView text) {
  return !text.empty() && everyUnitIn(text, *AlphaNumericCharacterSetRep());
}
bool isAsciiString(TextView text) {
  return allUnits(text, [](char16_t c) { return c < 128; });
}
bool isUmlautedString(TextView text) { return !tableKeepsEveryUnit(text, umlautsCharsTable()); }
bool isLowerCaseString(TextView text) { return tableKeepsEveryUnit(text, lowerCharsTable()); }
bool isUpperCaseString(TextView text) { return tableKeepsEveryUnit(text, upperCharsTable()); }

bool isMashedWord(TextView text) {
  if (text.size() < 3) return false;
  const CharacterSetRep& upper = *UppercaseLetterCharacterSetRep();
  const CharacterSetRep& lower = *LowercaseLetterCharacterSetRep();
  if (!upper.contains(text[0])) return false;
  std::size_t i = 1;
  while (i < text.size() && lower.contains(text[i])) ++i;
  if (i == text.size() || i < 2) return false;
  return upper.contains(text[i]) && i + 1 < text.size() && lower.contains(text[i + 1]);
}

// ---- Comparisons ----

bool isEqualToStringNoCase(TextView text, TextView other) {
  if (text.size() != other.size()) return false;
  if (text.empty()) return true;
  UErrorCode status = U_ZERO_ERROR;
  int32_t order = u_strCaseCompare(
      reinterpret_cast<const UChar*>(text.data()), static_cast<int32_t>(text.size()),
      reinterpret_cast<const UChar*>(other.data()), static_cast<int32_t>(other.size()),
      U_FOLD_CASE_DEFAULT, &status);
  return U_SUCCESS(status) && order == 0;
}

bool isCanonicallyEqualToStringNoCase(TextView text, TextView other) {
  UErrorCode status = U_ZERO_ERROR;
  int32_t order = unorm_compare(text.data(), static_cast<int32_t>(text.size()), other.data(),
                                static_cast<int32_t>(other.size()),
                                U_COMPARE_IGNORE_CASE | U_FOLD_CASE_DEFAULT, &status);
  if (U_FAILURE(status)) return text == other;
  return order == 0;
}

bool isEqualToStringIgnoringAsciiCase(TextView text, TextView other) {
  return text.size() == other.size() &&
         std::equal(text.begin(), text.end(), other.begin(), sameIgnoringAsciiCase);
}

bool hasPrefixIgnoringAsciiCase(TextView text, TextView prefix) {
  return text.size() >= prefix.size() &&
         isEqualToStringIgnoringAsciiCase(text.substr(0, prefix.size()), prefix);
}

bool containsIgnoringAsciiCase(TextView text, TextView part) {
  return std::search(text.begin(), text.end(), part.begin(), part.end(), sameIgnoringAsciiCase) !=
             text.end() ||
         part.empty();
}

bool isLowerEqualToStringNoCase(TextView text, TextView other) {
  return equalUnder(text, other, lowerCharsTable());
}

bool hasSuffixNoCase(TextView text, TextView suffix) {
  return text.size() >= suffix.size() &&
         isLowerEqualToStringNoCase(text.substr(text.size() - suffix.size()), suffix);
}

bool containsNoCase(TextView text, TextView part) {
  if (part.size() > text.size()) return false;
  for (std::size_t at = 0; at + part.size() <= text.size(); ++at)
    if (isLowerEqualToStringNoCase(text.substr(at, part.size()), part)) return true;
  return false;
}

bool isAsciiEqualToStringNoCase(TextView text, TextView other) {
  return asciiEqualNoCase(text, other);
}

bool isNonUmlautedEqualToStringNoCase(TextView text, TextView other) {
  return equalUnder(text, other, upperUmlautsCharsTable());
}

bool rangeIsAsciiEqualToNoCase(TextView text, TextRange range, TextView other) {
  std::optional<TextView> units = unitsInRange(text, range);
  return units && asciiEqualNoCase(*units, other);
}

bool rangeIsNonUmlautedEqualToNoCase(TextView text, TextRange range, TextView other) {
  std::optional<TextView> units = unitsInRange(text, range);
  return units && equalUnder(*units, other, upperUmlautsCharsTable());
}

// ---- Removal and mapping ----

TextString stringByRemovingCharactersInRep(TextView text, const CharacterSetRep* rep) {
  if (!rep || text.empty()) return TextString(text);
  TextString result(text.size(), u'\0');
  char16_t* out = result.data();
  std::size_t length = 0;
  for (char16_t c : text) {
    out[length] = c;
    length += !rep->contains(c);
  }
  result.resize(length);
  return result;
}

TextString stringByRemovingWhiteSpaces(TextView text) {
  return stringByRemovingCharactersInRep(text, WhiteSpaceAndNewlineCharacterSetRep());
}

TextString stringByApplyingConversionTable(TextView text, ConversionTable table) {
  if (!table || text.empty()) return TextString(text);
  return mapped(text, table);
}

void applyConversionTable(TextString& text, ConversionTable table) {
  if (!table) return;
  for (char16_t& c : text) c = table[c];
}

TextString stringByRemovingNonAlphaNumericCharactersAndApplyingConversionTable(
    TextView text, ConversionTable table) {
  if (text.empty()) return TextString();
  const CharacterSetRep& alphaNumeric = *AlphaNumericCharacterSetRep();
  TextString result(text.size(), u'\0');
  char16_t* out = result.data();
  std::size_t length = 0;
  for (char16_t c : text) {
    if (!alphaNumeric.contains(c)) continue;
    out[length++] = table ? table[c] : c;
  }
  result.resize(length);
  return result;
}

TextString nonUmlautedString(TextView text) { return mapped(text, umlautsCharsTable()); }
TextString lowercaseNonUmlautedString(TextView text) {
  return mapped(text, lowerUmlautsCharsTable());
}
TextString uppercaseNonUmlautedString(TextView text) {
  return mapped(text, upperUmlautsCharsTable());
}

TextString nonUmlautedNormalizedString(TextView text) {
  TextString result = normalizedString(text);
  applyConversionTable(result, umlautsCharsTable());
  return result;
}
TextString lowercaseNonUmlautedNormalizedString(TextView text) {
  TextString result = normalizedString(text);
  applyConversionTable(result, lowerUmlautsCharsTable());
  return result;
}
TextString uppercaseNonUmlautedNormalizedString(TextView text) {
  TextString result = normalizedString(text);
  applyConversionTable(result, upperUmlautsCharsTable());
  return result;
}

TextString asciiString(TextView text) { return normalizedAndMapped(text, AsciiChar); }
TextString lowercaseAsciiString(TextView text) { return normalizedAndMapped(text, LowerAsciiChar); }
TextString uppercaseAsciiString(TextView text) { return normalizedAndMapped(text, UpperAsciiChar); }

}  // namespace ulvek
