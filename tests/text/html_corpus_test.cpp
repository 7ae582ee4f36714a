// Web pages through the import conversion, checked for what a reader of the page must not see
// (markup, script and style text, undecoded references) and, on our own pages in tests/data/html,
// for the exact text, title, meta attributes and encoding each NAME.expect gives. Windowed
// scanning, as large files get, must answer what the whole decoding answers. The shared corpus of
// saved web pages is the extra suite.

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <regex>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "html_page_expectation.h"
#include "test_support.h"
#include "text/character_tables.h"
#include "text/encodings.h"
#include "text/html_meta.h"
#include "text/html_to_text.h"
#include "text/markup_scanner.h"
#include "text/string_utilities.h"
#include "text/text_decoding.h"

namespace ulvek {
namespace {

std::string lowerAscii(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// Script code: long tokens with code punctuation from the script elements of the source.
std::vector<std::string> scriptTokens(const std::string& source) {
  std::vector<std::string> tokens;
  const std::string lowered = lowerAscii(source);
  for (std::size_t at = lowered.find("<script"); at != std::string::npos;
       at = lowered.find("<script", at + 1)) {
    std::size_t i = lowered.find('>', at), end = lowered.find("</script", at);
    if (i == std::string::npos || end == std::string::npos) break;
    std::istringstream body(source.substr(i + 1, end - i - 1));
    for (std::string token; body >> token;)
      if (token.size() >= 30 && token.find_first_of("(){};=") != std::string::npos &&
          token.find_first_of("<>&") == std::string::npos)
        tokens.push_back(token);
    at = end;
  }
  return tokens;
}

// Whether "&name;" is a reference the conversion decodes.
bool isDecodable(const std::string& name) {
  static const std::regex kMarkupOrNumeric("#([0-9]+|[xX][0-9a-fA-F]+)|amp|lt|gt|quot");
  return std::regex_match(name, kMarkupOrNumeric) || htmlEntityCharacter(std::string_view(name));
}

// No tags and no script or style text; a tag may appear only when the page wrote it as text
// ("&lt;p&gt;"). References are decoded, unless the page escaped them twice ("&amp;amp;").
// Paragraphs are separated by blank lines. Answers the number of script tokens looked for.
std::size_t expectCleanText(const std::string& name, const std::string& source,
                            const std::string& text) {
  const std::string lowSource = lowerAscii(source), lowText = lowerAscii(text);
  EXPECT_LT(text.size(), source.size()) << name;
  static const std::regex kTag(
      "</?(a|p|div|span|img|br|li|ul|td|tr|table|meta|link|h1|h2|iframe|b|strong|em|noscript|"
      "body|script|style)[\\s>/]");
  for (std::sregex_iterator tag(lowText.begin(), lowText.end(), kTag), end; tag != end; ++tag) {
    std::string opener = tag->str().substr(0, tag->length() - 1);
    EXPECT_NE(lowSource.find("&lt;" + opener.substr(1)), std::string::npos)
        << name << ": " << text.substr(tag->position(), 60);
  }
  std::size_t tokensChecked = 0;
  for (const std::string& token : scriptTokens(source)) {
    ++tokensChecked;
    EXPECT_EQ(text.find(token), std::string::npos) << name << ": script text " << token;
  }
  static const std::regex kReference("&([#A-Za-z0-9]{1,31});");
  for (std::sregex_iterator ref(text.begin(), text.end(), kReference), end; ref != end; ++ref) {
    if (!isDecodable((*ref)[1])) continue;
    EXPECT_NE(source.find("&amp;" + (*ref)[1].str() + ";"), std::string::npos)
        << name << ": undecoded " << ref->str();
  }
  std::size_t paragraphs = 0;
  for (std::size_t at = lowSource.find("<p>"); at != std::string::npos; ++paragraphs)
    at = lowSource.find("<p>", at + 1);
  EXPECT_TRUE(paragraphs < 3 || text.find("\n\n") != std::string::npos) << name;
  return tokensChecked;
}

// The window sizes each page is scanned with besides its whole decoding: windows that cut tags,
// references, comments and script bodies anywhere, and the size the corpus pages get.
constexpr std::size_t kWindowSizes[] = {7, 13, 64, 1021};

// Decoded and scanned window by window, the bytes answer what their whole decoding answers: the
// encoding, the title, the meta attributes and the import text.
void expectWindowedAsWhole(const std::string& name, std::span<const std::uint8_t> bytes,
                           std::span<const std::size_t> windows) {
  for (StringEncoding defaultEncoding : {kISOLatin1StringEncoding, kUTF8StringEncoding}) {
    StringEncoding wholeUsed = 0;
    auto whole = markupSourceOfBytes(bytes, defaultEncoding, &wholeUsed, SIZE_MAX, 0);
    ASSERT_TRUE(whole) << name;
    const std::string title = toUtf8(normalizedHtmlTitle(*whole));
    const HtmlMetaAttributes meta = htmlMetaAttributesByConvertingEntitiesToCharacters(*whole);
    const std::string text = toUtf8(stringByConvertingHtml2PlainText(*whole, kImportHtmlOptions));
    for (std::size_t window : windows) {
      SCOPED_TRACE(name + " in windows of " + std::to_string(window));
      StringEncoding used = 0;
      auto windowed = markupSourceOfBytes(bytes, defaultEncoding, &used, 0, window);
      ASSERT_TRUE(windowed);
      EXPECT_EQ(used, wholeUsed);
      EXPECT_EQ(toUtf8(normalizedHtmlTitle(*windowed)), title);
      EXPECT_TRUE(htmlMetaAttributesByConvertingEntitiesToCharacters(*windowed) == meta);
      EXPECT_EQ(toUtf8(stringByConvertingHtml2PlainText(*windowed, kImportHtmlOptions)), text);
    }
  }
}

std::span<const std::uint8_t> bytesOf(const std::string& bytes) {
  return {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()};
}

// ---- Our own pages ----------------------------------------------------------------------------

using testing::ownPages;
using testing::Page;
using testing::trimmedEnd;

// Each page, read as the import reads a file, gives the encoding, title, meta attributes and text
// written beside it.
TEST(HtmlPages, GiveTheirExpectedAnswers) {
  testing::CapturedLog log;
  const std::vector<Page> pages = ownPages();
  for (const Page& page : pages) {
    SCOPED_TRACE(page.name);
    const testing::PageExpectation& expected = page.expected;
    ASSERT_NE(expected.encoding, 0u) << "no encoding in its .expect";
    StringEncoding used = 0;
    auto source = markupSourceOfFile(page.path.string(), kISOLatin1StringEncoding, &used);
    ASSERT_TRUE(source);
    EXPECT_EQ(used, expected.encoding) << std::hex << used;
    EXPECT_EQ(toUtf8(normalizedHtmlTitle(*source)), expected.title);
    std::map<std::string, std::string> meta;
    for (const auto& [key, value] : htmlMetaAttributesByConvertingEntitiesToCharacters(*source))
      meta[toUtf8(key)] = toUtf8(value);
    EXPECT_EQ(meta, expected.meta);
    EXPECT_EQ(trimmedEnd(toUtf8(stringByConvertingHtml2PlainText(*source, kImportHtmlOptions))),
              trimmedEnd(expected.text));
  }
  EXPECT_GE(pages.size(), 10u);
  EXPECT_TRUE(log.lines().empty()) << log.lines().front();
}

// The properties checked on every corpus page hold on ours, decoded as the import decodes them,
// and the other forms, the title and the meta attributes work on each.
TEST(HtmlPages, ConvertToCleanText) {
  testing::CapturedLog log;
  std::size_t tokensChecked = 0;
  for (const Page& page : ownPages()) {
    auto source = markupSourceOfFile(page.path.string(), kISOLatin1StringEncoding);
    ASSERT_TRUE(source) << page.name;
    const TextString html = source->wholeText();
    const std::string text = toUtf8(stringByConvertingHtml2PlainText(html, kImportHtmlOptions));
    tokensChecked += expectCleanText(page.name, toUtf8(html), text);
    bool removedJunk = false;
    EXPECT_FALSE(stringByConvertingHtml2PlainTextNonUmlauted(html, true, true, true, true,
                                                             &removedJunk, true, true)
                     .empty());
    EXPECT_FALSE(stringByConvertingHtml2SimplifiedPlainText(html).empty()) << page.name;
    const TextString title = normalizedHtmlTitle(html);
    EXPECT_FALSE(title.empty()) << page.name;
    EXPECT_EQ(title.find(u"<title"), TextString::npos) << page.name;
  }
  EXPECT_GE(tokensChecked, 4u);
  EXPECT_TRUE(log.lines().empty()) << log.lines().front();
}

TEST(HtmlPages, WindowedPagesAnswerAsWholePages) {
  for (const Page& page : ownPages())
    expectWindowedAsWhole(page.name, bytesOf(page.bytes), kWindowSizes);
}

// A page far larger than a window, in a two-byte charset it declares: its title and meta tags
// come after a long script in the head, and its body repeats blocks whose script bodies, comments,
// references and characters fall across window edges.
std::string largePage(StringEncoding encoding, const std::string& charset) {
  std::u16string page =
      u"<html><head><meta http-equiv=\"Content-Type\" content=\"text/html; charset=" +
      fromAscii(charset) + u"\">\n<script>";
  for (int i = 0; i < 300; ++i)
    page += u"var timetable" + fromAscii(std::to_string(i)) + u"={bell:\"</div>\",hour:7};\n";
  page +=
      u"</script>\n<title>大きな時刻表 &amp; 料金</title>\n"
      u"<meta name=\"keywords\" content=\"渡し船, &quot;時刻表&quot;\">\n</head>\n<body>\n";
  for (int i = 0; i < 400; ++i) {
    const TextString number = fromAscii(std::to_string(i));
    page += u"<h2>第" + number + u"便</h2>\n<p>船長が鐘を鳴らします &mdash; 出発" + number +
            u"。</p>\n<!-- <p>古い段落 " + number + u"</p> -->\n";
    if (i % 7 == 0) page += u"<style>p.note{content:\"見えない文字\";}</style>\n";
    if (i % 11 == 0)
      page += u"<script>if(a<b){document.write(\"<p>見えない段落</p>\");}</script>\n";
    page += u"<table><tr><td>料金</td><td>" + number + u"&nbsp;円</td></tr></table>\n";
  }
  page += u"</body></html>\n";
  std::optional<std::string> bytes = encodeText(page, encoding);
  return bytes.value_or(std::string());
}

TEST(HtmlPages, LargeGeneratedPageAnswersAsWhole) {
  const std::vector<std::pair<StringEncoding, std::string>> rows = {
      {kShiftJISStringEncoding, "Shift_JIS"},
      {kJapaneseEUCStringEncoding, "EUC-JP"},
      {kUTF8StringEncoding, "utf-8"},
  };
  for (const auto& [encoding, charset] : rows) {
    const std::string bytes = largePage(encoding, charset);
    ASSERT_GT(bytes.size(), 40000u) << charset;
    StringEncoding used = 0;
    auto whole = markupSourceOfBytes(bytesOf(bytes), kISOLatin1StringEncoding, &used, SIZE_MAX, 0);
    ASSERT_TRUE(whole) << charset;
    EXPECT_EQ(used, encoding) << charset;
    EXPECT_EQ(toUtf8(normalizedHtmlTitle(*whole)), "大きな時刻表 & 料金") << charset;
    const HtmlMetaAttributes meta = htmlMetaAttributesByConvertingEntitiesToCharacters(*whole);
    ASSERT_TRUE(meta.contains(u"keywords")) << charset;
    EXPECT_EQ(toUtf8(meta.at(u"keywords")), "渡し船, \"時刻表\"") << charset;
    const std::string text = toUtf8(stringByConvertingHtml2PlainText(*whole, kImportHtmlOptions));
    EXPECT_NE(text.find("船長が鐘を鳴らします — 出発399。"), std::string::npos) << charset;
    EXPECT_NE(text.find("399 円"), std::string::npos) << charset;
    for (const char* hidden : {"見えない", "古い段落", "timetable", "</div>"})
      EXPECT_EQ(text.find(hidden), std::string::npos) << charset << ": " << hidden;
    const std::size_t windows[] = {1021, 4096};
    expectWindowedAsWhole(charset, bytesOf(bytes), windows);
  }
}

// ---- The shared corpus ------------------------------------------------------------------------

TEST(HtmlCorpus, EveryPageConvertsToCleanText) {
  ULVEK_REQUIRE_CORPUS();
  testing::CapturedLog log;
  std::size_t pages = 0, withTitle = 0, tokensChecked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(testing::corpusPath() / "html")) {
    if (entry.path().extension() != ".html") continue;
    ++pages;
    const std::string name = entry.path().filename().string();
    const std::string source = testing::readFile(entry.path());
    const TextString html = fromUtf8(source);
    const std::string text = toUtf8(stringByConvertingHtml2PlainText(html, kImportHtmlOptions));
    tokensChecked += expectCleanText(name, source, text);

    // The other forms, the title and the meta attributes work on every page too.
    bool removedJunk = false;
    stringByConvertingHtml2PlainTextNonUmlauted(html, true, true, true, true, &removedJunk, true,
                                                true);
    stringByConvertingHtml2SimplifiedPlainText(html);
    const TextString title = normalizedHtmlTitle(html);
    withTitle += !title.empty();
    EXPECT_EQ(title.find(u"<title"), TextString::npos) << name;
    htmlMetaAttributesByConvertingEntitiesToCharacters(html);
  }
  EXPECT_GE(pages, 100u);
  EXPECT_GT(tokensChecked, 1000u);
  EXPECT_GE(withTitle, pages * 9 / 10);
  EXPECT_TRUE(log.lines().empty()) << log.lines().front();
}

// Every page decoded and scanned window by window, as large files are, answers what its whole
// decoding answers: the encoding, the title, the meta attributes and the import text.
TEST(HtmlCorpus, WindowedPagesAnswerAsWholePages) {
  ULVEK_REQUIRE_CORPUS();
  std::size_t pages = 0;
  const std::size_t windows[] = {1021};
  for (const auto& entry : std::filesystem::directory_iterator(testing::corpusPath() / "html")) {
    if (entry.path().extension() != ".html") continue;
    ++pages;
    const std::string source = testing::readFile(entry.path());
    expectWindowedAsWhole(entry.path().filename().string(), bytesOf(source), windows);
  }
  EXPECT_GE(pages, 100u);
}

}  // namespace
}  // namespace ulvek
