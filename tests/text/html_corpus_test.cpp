// Every saved web page of the corpus through the import conversion, checked for what a reader of
// the page must not see: markup, script and style text, undecoded references.

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <sstream>
#include <string>

#include "test_support.h"
#include "text/character_tables.h"
#include "text/html_meta.h"
#include "text/html_to_text.h"
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

TEST(HtmlCorpus, EveryPageConvertsToCleanText) {
  testing::CapturedLog log;
  std::size_t pages = 0, withTitle = 0, tokensChecked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(testing::corpusPath() / "html")) {
    if (entry.path().extension() != ".html") continue;
    ++pages;
    const std::string name = entry.path().filename().string();
    const std::string source = testing::readFile(entry.path()), lowSource = lowerAscii(source);
    const TextString html = fromUtf8(source);
    const std::string text = toUtf8(stringByConvertingHtml2PlainText(html, kImportHtmlOptions));
    const std::string lowText = lowerAscii(text);
    EXPECT_LT(text.size(), source.size()) << name;

    // No tags and no script or style text; a tag may appear only when the page wrote it as
    // text ("&lt;p&gt;").
    static const std::regex kTag(
        "</?(a|p|div|span|img|br|li|ul|td|tr|table|meta|link|h1|h2|iframe|b|strong|em|noscript|"
        "body|script|style)[\\s>/]");
    for (std::sregex_iterator tag(lowText.begin(), lowText.end(), kTag), end; tag != end; ++tag) {
      std::string opener = tag->str().substr(0, tag->length() - 1);
      EXPECT_NE(lowSource.find("&lt;" + opener.substr(1)), std::string::npos)
          << name << ": " << text.substr(tag->position(), 60);
    }
    for (const std::string& token : scriptTokens(source)) {
      ++tokensChecked;
      EXPECT_EQ(text.find(token), std::string::npos) << name << ": script text " << token;
    }
    // References are decoded, unless the page escaped them twice ("&amp;amp;").
    static const std::regex kReference("&([#A-Za-z0-9]{1,31});");
    for (std::sregex_iterator ref(text.begin(), text.end(), kReference), end; ref != end; ++ref) {
      if (!isDecodable((*ref)[1])) continue;
      EXPECT_NE(source.find("&amp;" + (*ref)[1].str() + ";"), std::string::npos)
          << name << ": undecoded " << ref->str();
    }
    // Paragraphs are separated by blank lines.
    std::size_t paragraphs = 0;
    for (std::size_t at = lowSource.find("<p>"); at != std::string::npos; ++paragraphs)
      at = lowSource.find("<p>", at + 1);
    EXPECT_TRUE(paragraphs < 3 || text.find("\n\n") != std::string::npos) << name;

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
  std::size_t pages = 0;
  for (const auto& entry : std::filesystem::directory_iterator(testing::corpusPath() / "html")) {
    if (entry.path().extension() != ".html") continue;
    ++pages;
    const std::string source = testing::readFile(entry.path());
    const auto bytes =
        std::span(reinterpret_cast<const std::uint8_t*>(source.data()), source.size());
    const std::string name = entry.path().filename().string();
    for (StringEncoding defaultEncoding : {kISOLatin1StringEncoding, kUTF8StringEncoding}) {
      StringEncoding wholeUsed = 0, used = 0;
      auto whole = markupSourceOfBytes(bytes, defaultEncoding, &wholeUsed, SIZE_MAX, 0);
      auto windowed = markupSourceOfBytes(bytes, defaultEncoding, &used, 0, 1021);
      ASSERT_TRUE(whole && windowed) << name;
      EXPECT_EQ(used, wholeUsed) << name;
      EXPECT_EQ(toUtf8(normalizedHtmlTitle(*windowed)), toUtf8(normalizedHtmlTitle(*whole)))
          << name;
      EXPECT_TRUE(htmlMetaAttributesByConvertingEntitiesToCharacters(*windowed) ==
                  htmlMetaAttributesByConvertingEntitiesToCharacters(*whole))
          << name;
      EXPECT_EQ(toUtf8(stringByConvertingHtml2PlainText(*windowed, kImportHtmlOptions)),
                toUtf8(stringByConvertingHtml2PlainText(*whole, kImportHtmlOptions)))
          << name;
    }
  }
  EXPECT_GE(pages, 100u);
}

}  // namespace
}  // namespace ulvek
