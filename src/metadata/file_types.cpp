#include "metadata/file_types.h"

#include <array>

#include "base/property_list.h"
#include "platform/content_types.h"
#include "platform/type_codes.h"
#include "platform/user_defaults.h"
#include "text/character_tables.h"

namespace ulvek {
namespace {

using Table = std::span<const TextView>;

// Extension tables keep their entries as written; comparison folds both sides.
constexpr TextView kInternetLocationExtensions[] = {
    u"webloc", u"mailloc", u"ftploc",     u"inetloc",     u"newsloc", u"fileloc",
    u"vncloc", u"url",     u"webhistory", u"webbookmark", u"desktop"};
constexpr std::uint32_t kInternetLocationTypes[] = {
    fourCharCode("LINK"), fourCharCode("ilaf"), fourCharCode("ilat"), fourCharCode("ilfi"),
    fourCharCode("ilft"), fourCharCode("ilge"), fourCharCode("ilht"), fourCharCode("ilma"),
    fourCharCode("ilns"), fourCharCode("ilnw")};
constexpr TextView kEmailExtensions[] = {u"eml", u"emlx"};
constexpr TextView kPDFBundleExtensions[] = {u"pdfd", u"lpdf"};
constexpr TextView kPDFExtensions[] = {u"PDF"};
constexpr TextView kPDFTypes[] = {u"'PDF '"};
constexpr TextView kPostScriptExtensions[] = {u"PS", u"EPS", u"AI"};
constexpr TextView kWebArchiveExtensions[] = {u"webarchive"};
constexpr TextView kTextBundleExtensions[] = {u"textbundle", u"textpack"};
constexpr TextView kHTMLExtensions[] = {u"HTML",  u"HTM",  u"SHTML", u"XHTML", u"PHTML", u"MHTML",
                                        u"JHTML", u"SHTM", u"XHTM",  u"CFM",   u"PHP",   u"PHP3",
                                        u"PHP4",  u"PHP5", u"JSP",   u"ASP",   u"ASPX",  u"CGI"};
constexpr TextView kXMLExtensions[] = {
    u"XML",  u"XSL",  u"ENT",  u"WML",  u"DTD",   u"SGM",      u"XBL",
    u"RSS",  u"RDF",  u"RSD",  u"TBX",  u"XSD",   u"SGML",     u"OPML",
    u"SHTM", u"XSLT", u"SDEF", u"WSDL", u"IDATA", u"OOUTLINE", u"XMLOUTLINE"};
constexpr std::size_t kShortestXMLExtension = 3;
constexpr std::size_t kLongestXMLExtension = 10;
constexpr TextView kSheetExtensions[] = {u"CSV", u"TAB", u"TSV", u"BIB", u"TDF", u"ID2XF"};
constexpr TextView kFormExtensions[] = {u"VCF"};
constexpr TextView kWordPerfectExtensions[] = {u"WPD"};
constexpr TextView kWordPerfectTypes[] = {u"'WPD4'"};
constexpr TextView kRTFExtensions[] = {u"RTF", u"RTFD"};
constexpr TextView kRTFTypes[] = {u"'RTF '", u"'ttro'", u"'sEXT'"};
constexpr TextView kStyledTextTypes[] = {u"'ttro'", u"'sEXT'"};
constexpr TextView kPlainTextNames[] = {u"text", u"txt"};
constexpr TextView kTextClippingExtensions[] = {u"textClipping", u"clipping"};
constexpr TextView kTextClippingTypes[] = {u"'clpt'"};
constexpr TextView kTextTypes[] = {u"'TEXT'", u"'ttro'", u"'sEXT'", u"'TERO'"};
// Binary formats that old tools stamped 'TEXT' all the same.
constexpr TextView kNotTextExtensions[] = {u"svg", u"eps", u"hqx", u"bin", u"sit",
                                           u"zip", u"skp", u"exe", u"ps",  u"ai"};
constexpr TextView kChatExtensions[] = {u"chat", u"ichat", u"ychat"};
constexpr TextView kChatTypes[] = {u"'YMSG'"};
constexpr TextView kAppleScriptExtensions[] = {u"scpt", u"scptd", u"applescript", u"templatescript",
                                               u"templatescriptd"};
constexpr TextView kAppleScriptTypes[] = {u"'scpt'", u"'osas'", u"'APPL'"};
constexpr TextView kWordExtensions[] = {u"DOC", u"DOT", u"DOCX", u"DOTX", u"DOCM", u"DOTM"};
constexpr TextView kWordTypes[] = {u"'W8TN'", u"'W8BN'"};
constexpr TextView kOpenOfficeExtensions[] = {u"odt", u"ott", u"stw", u"sxw"};

// Plain-text extensions, in the order they are tried ("tab" twice, as it always was).
constexpr TextView kPlainTextExtensions[] = {u"tex",
                                             u"bibtex",
                                             u"f",
                                             u"for",
                                             u"f77",
                                             u"f90",
                                             u"fpp",
                                             u"x",
                                             u"v",
                                             u"c",
                                             u"cpp",
                                             u"hpp",
                                             u"cp",
                                             u"m",
                                             u"mm",
                                             u"swift",
                                             u"h",
                                             u"java",
                                             u"applescript",
                                             u"pl",
                                             u"py",
                                             u"pm",
                                             u"js",
                                             u"lisp",
                                             u"tcl",
                                             u"text",
                                             u"txt",
                                             u"org",
                                             u"csv",
                                             u"tsv",
                                             u"tdf",
                                             u"tab",
                                             u"vcf",
                                             u"css",
                                             u"seq",
                                             u"log",
                                             u"strings",
                                             u"scriptsuite",
                                             u"scriptterminology",
                                             u"sdef",
                                             u"sh",
                                             u"rc",
                                             u"hlp",
                                             u"bib",
                                             u"cls",
                                             u"ml",
                                             u"mli",
                                             u"mly",
                                             u"sty",
                                             u"mll",
                                             u"sql",
                                             u"sqc",
                                             u"cmd",
                                             u"lst",
                                             u"con",
                                             u"tab",
                                             u"bat",
                                             u"err",
                                             u"pp",
                                             u"p",
                                             u"pas",
                                             u"inc",
                                             u"command",
                                             u"pir",
                                             u"sw",
                                             u"swiss",
                                             u"gb",
                                             u"genbank",
                                             u"em",
                                             u"embl",
                                             u"fasta",
                                             u"gff",
                                             u"aln",
                                             u"msf",
                                             u"xchatlog",
                                             u"conf",
                                             u"cfg",
                                             u"config",
                                             u"template",
                                             u"lpd",
                                             u"wrl",
                                             u"hs",
                                             u"lhs",
                                             u"ss",
                                             u"scm",
                                             u"mis",
                                             u"xd",
                                             u"ans",
                                             u"rb",
                                             u"ads",
                                             u"adb",
                                             u"erl",
                                             u"hrl",
                                             u"crash",
                                             u"diag",
                                             u"hang",
                                             u"textile",
                                             u"markdown",
                                             u"mdtext",
                                             u"mdown",
                                             u"mark",
                                             u"mkdown",
                                             u"mmd",
                                             u"mdwn",
                                             u"md",
                                             u"json",
                                             u"dot",
                                             u"nb",
                                             u"haml",
                                             u"sass",
                                             u"taskpaper",
                                             u"ft",
                                             u"xqy",
                                             u"xq",
                                             u"pgn",
                                             u"entitlements",
                                             u"lua",
                                             u"srt",
                                             u"mediawiki",
                                             u"asciidoc"};
static_assert(std::size(kPlainTextExtensions) == 120);

// What the image importer reads (extensions and the type codes old files carry), followed by the
// eight entries that always count as images here.
// What the image importer reads (the formats Exiv2 reads), with the fixed entries.
constexpr TextView kImageFileTypes[] = {
    u"jpg",    u"jpeg", u"png",    u"gif",    u"tif",    u"tiff",   u"bmp",    u"webp",   u"heic",
    u"heif",   u"avif", u"psd",    u"tga",    u"jp2",    u"pgf",    u"dng",    u"cr2",    u"cr3",
    u"crw",    u"nef",  u"orf",    u"rw2",    u"raf",    u"arw",    u"sr2",    u"srw",    u"pef",
    u"mrw",    u"exv",  u"'PNGf'", u"'JPEG'", u"'GIFf'", u"'TIFF'", u"'BMP '", u"'BMPf'", u"'8BPS'",
    u"'jp2 '", u"jpe",  u"JPE",    u"ps",     u"PS",     u"eps",    u"EPS",    u"ai",     u"AI"};

// What the attributed-string readers open.
constexpr TextView kAttributedFileTypes[] = {u"rtf",  u"rtfd",   u"doc",  u"dot", u"docx", u"dotx",
                                             u"docm", u"dotm",   u"odt",  u"ott", u"fodt", u"sxw",
                                             u"stw",  u"wordml", u"html", u"htm", u"txt",  u"text"};

constexpr std::size_t kMaxValidPathExtension = 17;

// A table's entries grouped by length, computed at compile time, so a lookup visits only the
// entries as long as the extension (in table order) and skips the rest without a comparison.
constexpr std::size_t kLongestIndexedEntry = 32;

template <std::size_t N>
struct LengthIndex {
  std::array<TextView, N> entries{};
  std::array<std::size_t, kLongestIndexedEntry + 2> start{};

  std::span<const TextView> ofLength(std::size_t length) const {
    if (length > kLongestIndexedEntry) return {};
    return std::span<const TextView>(entries).subspan(start[length],
                                                      start[length + 1] - start[length]);
  }
};

template <std::size_t N>
constexpr LengthIndex<N> indexByLength(const TextView (&table)[N]) {
  LengthIndex<N> index;
  std::size_t next = 0;
  for (std::size_t length = 0; length <= kLongestIndexedEntry; ++length) {
    index.start[length] = next;
    for (TextView entry : table)
      if (entry.size() == length) index.entries[next++] = entry;
  }
  index.start[kLongestIndexedEntry + 1] = next;
  return index;
}

constexpr auto kInternetLocationIndex = indexByLength(kInternetLocationExtensions);
constexpr auto kHTMLIndex = indexByLength(kHTMLExtensions);
constexpr auto kXMLIndex = indexByLength(kXMLExtensions);
constexpr auto kImageIndex = indexByLength(kImageFileTypes);
constexpr auto kAttributedIndex = indexByLength(kAttributedFileTypes);
constexpr auto kPlainTextIndex = indexByLength(kPlainTextExtensions);
static_assert(kPlainTextIndex.start.back() == std::size(kPlainTextExtensions));
static_assert(kImageIndex.start.back() == std::size(kImageFileTypes));

// An extension folded to lower case once, so a table costs one length test per entry and a
// character comparison only for entries of the same length. Longer extensions match nothing.
class FoldedExtension {
 public:
  static constexpr std::size_t kCapacity = 32;

  explicit FoldedExtension(TextView extension) : size_(extension.size()) {
    if (size_ > kCapacity) return;
    ConversionTable lower = lowerCharsTable();
    for (std::size_t i = 0; i < size_; ++i) units_[i] = lower[extension[i]];
  }

  std::size_t size() const { return size_; }

  bool equals(TextView entry, ConversionTable lower) const {
    if (entry.size() != size_ || size_ > kCapacity) return false;
    for (std::size_t i = 0; i < size_; ++i)
      if (lower[entry[i]] != units_[i]) return false;
    return true;
  }

  template <typename Entries>
  bool matchesAny(const Entries& table) const {
    if (size_ == 0 || size_ > kCapacity) return false;
    ConversionTable lower = lowerCharsTable();
    for (const auto& entry : table)
      if (equals(entry, lower)) return true;
    return false;
  }

 private:
  std::size_t size_;
  std::array<char16_t, kCapacity> units_{};
};

bool hasText(OptionalText text) { return text && !text->empty(); }

bool extensionIn(OptionalText extension, Table table) {
  if (!hasText(extension)) return false;
  return FoldedExtension(*extension).matchesAny(table);
}

template <std::size_t N>
bool extensionIn(OptionalText extension, const LengthIndex<N>& index) {
  if (!hasText(extension)) return false;
  return FoldedExtension(*extension).matchesAny(index.ofLength(extension->size()));
}

bool exactlyIn(OptionalText text, Table table) {
  if (!text) return false;
  for (TextView entry : table)
    if (entry.size() == text->size() && entry == *text) return true;
  return false;
}

}  // namespace

TextString pathExtension(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  std::size_t slash = path.rfind('/');
  std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
  return fromUtf8(name.substr(dot + 1));
}

bool isValidPathExtension(TextView extension) {
  if (extension.empty() || extension.size() > kMaxValidPathExtension) return false;
  for (char16_t unit : extension)
    if (!isAlphaNumeric(unit)) return false;
  return true;
}

bool isInternetLocationExtension(OptionalText extension, OptionalText type) {
  if (hasText(type)) {
    std::uint32_t code = HFSTypeCodeFromFileType(*type);
    for (std::uint32_t locationType : kInternetLocationTypes)
      if (code == locationType) return true;
  }
  return extensionIn(extension, kInternetLocationIndex);
}

bool isEmailExtension(OptionalText extension) { return extensionIn(extension, kEmailExtensions); }

bool isPDFBundleExtension(OptionalText extension) {
  return extensionIn(extension, kPDFBundleExtensions);
}

bool isPDFExtension(OptionalText extension, OptionalText type) {
  return extensionIn(extension, kPDFExtensions) || exactlyIn(type, kPDFTypes) ||
         isPostScriptExtension(extension);
}

bool isPostScriptExtension(OptionalText extension) {
  return extensionIn(extension, kPostScriptExtensions);
}

std::span<const TextView> imageFileTypes() { return kImageFileTypes; }

bool isImageExtension(OptionalText extension, OptionalText type) {
  if (extensionIn(extension, kImageIndex)) return true;
  return hasText(type) && exactlyIn(type, kImageFileTypes);
}

bool isWebArchiveExtension(OptionalText extension) {
  return extensionIn(extension, kWebArchiveExtensions);
}

bool isTextBundleExtension(OptionalText extension, OptionalText) {
  return extensionIn(extension, kTextBundleExtensions);
}

bool isHTMLExtension(OptionalText extension) {
  if (!extension) return false;
  // A query part glued to the extension ("php?id=3") does not change the kind of page.
  TextView name = *extension;
  std::size_t question = name.find(u'?');
  if (question != TextView::npos) name = name.substr(0, question);
  return extensionIn(name, kHTMLIndex);
}

bool isPropertyListExtension(OptionalText extension) {
  return extensionIn(extension, kPropertyListExtensions);
}

bool isXMLExtension(OptionalText extension) {
  if (!extension || extension->size() < kShortestXMLExtension ||
      extension->size() > kLongestXMLExtension)
    return false;
  return extensionIn(extension, kXMLIndex);
}

bool isSheetExtension(OptionalText extension) { return extensionIn(extension, kSheetExtensions); }

bool isFormExtension(OptionalText extension) { return extensionIn(extension, kFormExtensions); }

bool isWordPerfectExtension(OptionalText extension, OptionalText type) {
  if (extensionIn(extension, kWordPerfectExtensions)) return true;
  return type && isLowerEqualToStringNoCase(*type, kWordPerfectTypes[0]);
}

bool isRTFExtension(OptionalText extension, OptionalText type) {
  return extensionIn(extension, kRTFExtensions) || exactlyIn(type, kRTFTypes);
}

std::span<const TextView> attributedFileTypes() { return kAttributedFileTypes; }

bool isAttributedExtension(OptionalText extension, OptionalText type) {
  // Plain text only goes to the attributed readers when its type code says it is styled.
  if (extensionIn(extension, kPlainTextNames)) return exactlyIn(type, kStyledTextTypes);
  if (type && *type == u"'TEXT'") return false;
  return extensionIn(extension, kAttributedIndex) || exactlyIn(type, kAttributedFileTypes);
}

bool isTextClippingExtension(OptionalText extension, OptionalText type) {
  return extensionIn(extension, kTextClippingExtensions) || exactlyIn(type, kTextClippingTypes);
}

bool isTextClippingFile(const std::string& path) {
  TextString extension = pathExtension(path);
  std::optional<TextString> type = HFSTypeOfFile(path);
  return isTextClippingExtension(extension,
                                 type ? OptionalText(*type) : OptionalText(std::nullopt));
}

std::vector<TextString> textFileTypesFromDefault(const std::optional<PropertyValue>& value) {
  std::vector<TextString> result;
  if (!value) return result;
  PropertyArray split;
  const PropertyArray* list = value->array();
  if (const TextString* joined = value->string()) {
    std::size_t start = 0;
    while (true) {
      std::size_t dot = joined->find(u'.', start);
      split.emplace_back(TextString(joined->substr(start, dot - start)));
      if (dot == TextString::npos) break;
      start = dot + 1;
    }
    list = &split;
  }
  if (!list) return result;
  for (const PropertyValue& element : *list) {
    const TextString* extension = element.string();
    if (extension && isValidPathExtension(*extension)) result.push_back(*extension);
  }
  return result;
}

std::span<const TextString> customTextFileTypes() {
  static const std::vector<TextString>* types = new std::vector<TextString>(
      textFileTypesFromDefault(userDefault("AdditionalPlainTextExtensions")));
  return *types;
}

bool isTextExtension(OptionalText extension, OptionalText type) {
  if (hasText(extension)) {
    FoldedExtension folded(*extension);
    if (folded.matchesAny(kPlainTextIndex.ofLength(folded.size()))) return true;
    if (folded.matchesAny(customTextFileTypes())) return true;
  }
  if (!type || type->size() != 6 || !exactlyIn(type, kTextTypes)) return false;
  return !extensionIn(extension, kNotTextExtensions);
}

bool isWordExtension(OptionalText extension, OptionalText type) {
  return extensionIn(extension, kWordExtensions) || exactlyIn(type, kWordTypes);
}

bool isOpenOfficeExtension(OptionalText extension) {
  return extensionIn(extension, kOpenOfficeExtensions);
}

bool isChatExtension(OptionalText extension, OptionalText type) {
  // Chat extensions are matched exactly: old transcripts in capitals are something else.
  return (hasText(extension) && exactlyIn(extension, kChatExtensions)) ||
         exactlyIn(type, kChatTypes);
}

bool isAppleScriptExtension(OptionalText extension, OptionalText type) {
  return extensionIn(extension, kAppleScriptExtensions) || exactlyIn(type, kAppleScriptTypes);
}

bool isPDFMIMEType(OptionalText mimeType) {
  if (!hasText(mimeType)) return false;
  return hasSuffixNoCase(*mimeType, u"/pdf") || hasSuffixNoCase(*mimeType, u"/x-pdf");
}

bool isPostScriptMIMEType(OptionalText mimeType) {
  if (!hasText(mimeType)) return false;
  return hasSuffixNoCase(*mimeType, u"/postscript") || hasSuffixNoCase(*mimeType, u"/x-postscript");
}

bool isRTFMIMEType(OptionalText mimeType) {
  if (!hasText(mimeType)) return false;
  return hasSuffixNoCase(*mimeType, u"/rtf") || hasSuffixNoCase(*mimeType, u"/x-rtf") ||
         mimeType->find(u"richtext") != TextView::npos;
}

bool isMSWordMIMEType(OptionalText mimeType) {
  if (!hasText(mimeType)) return false;
  if (containsNoCase(*mimeType, u"msword")) return true;
  for (TextView suffix : {u"/doc", u"/docx", u"/x-doc", u"/x-docx", u"/dot", u"/x-dot"})
    if (hasSuffixNoCase(*mimeType, suffix)) return true;
  return false;
}

bool isOpenOfficeMIMEType(OptionalText mimeType) {
  return hasText(mimeType) && containsNoCase(*mimeType, u"/vnd.oasis.opendocument.text");
}

bool isStarOfficeMIMEType(OptionalText mimeType) {
  return hasText(mimeType) && containsNoCase(*mimeType, u"/vnd.sun.xml.writer");
}

}  // namespace ulvek
