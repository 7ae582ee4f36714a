// Every saved web page of the corpus through the import conversion, checked for what a reader of
// the page must not see: markup, script and style text, undecoded references.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "test_support.h"
#include "text/character_tables.h"
#include "text/html_meta.h"
#include "text/html_to_text.h"

namespace ulvek {
namespace {

struct Page {
  std::string name;
  std::string source;  // as stored (UTF-8)
  TextString html;
  std::string text;  // the import conversion, as UTF-8
};

std::string lowerAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return text;
}

const std::vector<Page>& corpusPages() {
  static const std::vector<Page> pages = [] {
    std::vector<Page> loaded;
    for (const auto& entry : std::filesystem::directory_iterator(testing::corpusPath() / "html")) {
      if (entry.path().extension() != ".html") continue;
      Page page;
      page.name = entry.path().filename().string();
      page.source = testing::readFile(entry.path());
      page.html = fromUtf8(page.source);
      page.text =
          toUtf8(stringByConvertingHtml2PlainTextNonUmlauted(page.html, false, false, true, true));
      loaded.push_back(std::move(page));
    }
    std::sort(loaded.begin(), loaded.end(),
              [](const Page& a, const Page& b) { return a.name < b.name; });
    return loaded;
  }();
  return pages;
}

TEST(HtmlCorpus, EveryPageConverts) {
  testing::CapturedLog log;
  ASSERT_GE(corpusPages().size(), 100u);
  for (const Page& page : corpusPages()) {
    EXPECT_NE(page.text, page.source) << page.name << ": nothing was converted";
    EXPECT_LT(page.text.size(), page.source.size()) << page.name;
    for (bool reformat : {false, true}) {
      bool removedJunk = false;
      stringByConvertingHtml2PlainTextNonUmlauted(page.html, true, reformat, true, true,
                                                  &removedJunk, true, true);
    }
    stringByConvertingHtml2SimplifiedPlainText(page.html);
  }
  EXPECT_TRUE(log.lines().empty()) << log.lines().front();
}

// Script code: long tokens with code punctuation taken from the script elements of the source.
std::vector<std::string> scriptTokens(const std::string& source) {
  std::vector<std::string> tokens;
  const std::string lowered = lowerAscii(source);
  for (std::size_t at = lowered.find("<script"); at != std::string::npos;
       at = lowered.find("<script", at + 1)) {
    std::size_t bodyStart = lowered.find('>', at);
    if (bodyStart == std::string::npos) break;
    std::size_t bodyEnd = lowered.find("</script", bodyStart);
    if (bodyEnd == std::string::npos) break;
    std::size_t i = bodyStart + 1;
    while (i < bodyEnd) {
      while (i < bodyEnd && isspace(static_cast<unsigned char>(source[i]))) ++i;
      std::size_t end = i;
      while (end < bodyEnd && !isspace(static_cast<unsigned char>(source[end]))) ++end;
      std::string token = source.substr(i, end - i);
      if (token.size() >= 30 && token.find_first_of("(){};=") != std::string::npos &&
          token.find_first_of("<>&") == std::string::npos) {
        tokens.push_back(std::move(token));
      }
      i = end;
    }
    at = bodyEnd;
  }
  return tokens;
}

TEST(HtmlCorpus, NoScriptOrStyleText) {
  std::size_t tokensChecked = 0;
  for (const Page& page : corpusPages()) {
    const std::string lowered = lowerAscii(page.text);
    const std::string source = lowerAscii(page.source);
    for (std::string marker : {"script", "/script", "style", "/style"}) {
      // Pages about markup may show the tag as text.
      if (source.find("&lt;" + marker) != std::string::npos) continue;
      EXPECT_EQ(lowered.find("<" + marker), std::string::npos) << page.name << ": " << marker;
    }
    for (const std::string& token : scriptTokens(page.source)) {
      ++tokensChecked;
      EXPECT_EQ(page.text.find(token), std::string::npos) << page.name << ": script text " << token;
    }
  }
  EXPECT_GT(tokensChecked, 1000u);
}

TEST(HtmlCorpus, NoTagsLeft) {
  // A tag in the output is only allowed when the page wrote it as text ("&lt;p&gt;").
  const std::vector<std::string> names = {
      "a",    "p",    "div", "span", "img",    "br", "li",     "ul", "td",       "tr",  "table",
      "meta", "link", "h1",  "h2",   "iframe", "b",  "strong", "em", "noscript", "body"};
  for (const Page& page : corpusPages()) {
    const std::string text = lowerAscii(page.text);
    const std::string source = lowerAscii(page.source);
    for (const std::string& name : names) {
      for (const std::string& opener : {"<" + name, "</" + name}) {
        for (std::size_t at = text.find(opener); at != std::string::npos;
             at = text.find(opener, at + 1)) {
          const char next = at + opener.size() < text.size() ? text[at + opener.size()] : '\0';
          if (next != '>' && next != ' ' && next != '/' && next != '\n') continue;
          const std::string escaped = "&lt;" + opener.substr(1);
          EXPECT_NE(source.find(escaped), std::string::npos)
              << page.name << ": " << text.substr(at, 60);
          break;
        }
      }
    }
  }
}

// The name of a reference at text[at] ("&amp;" → "amp"), or "" when there is none.
std::string referenceAt(const std::string& text, std::size_t at) {
  std::size_t end = at + 1;
  if (end < text.size() && text[end] == '#') ++end;
  while (end < text.size() && end - at < 32 && isalnum(static_cast<unsigned char>(text[end]))) {
    ++end;
  }
  if (end >= text.size() || text[end] != ';' || end == at + 1) return "";
  return text.substr(at + 1, end - at - 1);
}

bool isConvertibleReference(const std::string& name) {
  if (name[0] == '#') {
    if (name.size() < 2) return false;
    const bool hex = name[1] == 'x' || name[1] == 'X';
    const std::size_t first = hex ? 2 : 1;
    if (first >= name.size()) return false;
    for (std::size_t i = first; i < name.size(); ++i) {
      if (!(hex ? isxdigit(static_cast<unsigned char>(name[i]))
                : isdigit(static_cast<unsigned char>(name[i])))) {
        return false;
      }
    }
    return true;
  }
  if (name == "amp" || name == "lt" || name == "gt" || name == "quot") return true;
  return htmlEntityCharacter(std::string_view(name)).has_value();
}

TEST(HtmlCorpus, ReferencesDecoded) {
  for (const Page& page : corpusPages()) {
    for (std::size_t at = page.text.find('&'); at != std::string::npos;
         at = page.text.find('&', at + 1)) {
      const std::string name = referenceAt(page.text, at);
      if (name.empty() || !isConvertibleReference(name)) continue;
      // Written escaped twice in the page ("&amp;amp;"), it is text after one conversion.
      const std::string doubled = "&amp;" + name + ";";
      EXPECT_NE(page.source.find(doubled), std::string::npos)
          << page.name << ": undecoded &" << name << ";";
    }
  }
}

TEST(HtmlCorpus, ParagraphsAreSeparatedByBlankLines) {
  for (const Page& page : corpusPages()) {
    const std::string source = lowerAscii(page.source);
    std::size_t paragraphs = 0;
    for (std::size_t at = source.find("<p>"); at != std::string::npos && paragraphs < 3;
         at = source.find("<p>", at + 1)) {
      ++paragraphs;
    }
    if (paragraphs < 3) continue;
    EXPECT_NE(page.text.find("\n\n"), std::string::npos) << page.name;
  }
}

TEST(HtmlCorpus, TitlesAndMetaAttributes) {
  std::size_t withTitle = 0;
  for (const Page& page : corpusPages()) {
    const TextString title = normalizedHtmlTitle(page.html);
    if (!title.empty()) ++withTitle;
    EXPECT_EQ(title.find(u"<title"), TextString::npos) << page.name;
    for (const auto& [key, value] : htmlMetaAttributesByConvertingEntitiesToCharacters(page.html)) {
      EXPECT_FALSE(key.empty()) << page.name;
      EXPECT_FALSE(value.empty()) << page.name << ": " << toUtf8(key);
      EXPECT_EQ(toUtf8(key), lowerAscii(toUtf8(key))) << page.name;
    }
  }
  EXPECT_GE(withTitle, corpusPages().size() * 9 / 10);
}

}  // namespace
}  // namespace ulvek
