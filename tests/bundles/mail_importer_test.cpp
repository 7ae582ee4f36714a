// Mail.mdimporter over the project's own messages (tests/data/mail) against the answers written
// beside them, and over the mail corpus: subjects, people, dates and bodies against Python's
// email module.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <variant>
#include <vector>

#include "base/base64.h"
#include "bundle_harness.h"
#include "fixture_files.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::Bundle;
using testing::BundleAttributes;
using testing::words;
namespace fs = std::filesystem;

// A string member of the expected answer; empty when absent or of another kind.
std::string member(const nlohmann::json& object, const char* key) {
  auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

// Plain, alternative and HTML-only bodies, encoded headers in several charsets, attachments of
// each readable kind, Apple Mail's .emlx, and mailboxes of several messages and of one.
TEST(MailImporter, FixturesGiveTheirAttributes) {
  Bundle bundle("Mail", "UlvekMailImporterFactory");
  testing::expectFixtures(bundle, "mail", {".eml", ".emlx", ".mbox", ".mbx"}, 9, 0, words);
}

TEST(MailImporter, CorpusMessages) {
  ULVEK_REQUIRE_CORPUS();
  Bundle bundle("Mail", "UlvekMailImporterFactory");
  int subjects = 0, bodies = 0, senders = 0;
  for (const char* format : {"eml", "emlx"}) {
    for (const auto& entry : fs::directory_iterator(testing::corpusPath() / "docs" / format)) {
      std::string name = entry.path().filename().string();
      if (name.ends_with(".json") || name.starts_with("._")) continue;
      SCOPED_TRACE(name);
      auto expect =
          nlohmann::json::parse(testing::readFile(entry.path().string() + ".expect.json"));
      BundleAttributes values = bundle.import(entry.path().string());
      if (name.starts_with("damaged-") || !expect.contains("expected")) continue;
      const auto& expected = expect["expected"];
      if (std::string subject = member(expected, "subject");
          !subject.empty() && name.find("bad_encoded") == std::string::npos) {
        EXPECT_EQ(words(testing::stringOf(values, "kMDItemTitle")), words(subject));
        ++subjects;
      }
      if (expected.contains("from_addresses") && expected["from_addresses"].is_array() &&
          !expected["from_addresses"].empty() && expected["from_addresses"][0].is_string()) {
        EXPECT_TRUE(testing::stringOf(values, "kMDItemAuthorEmailAddresses")
                        .starts_with(expected["from_addresses"][0].get<std::string>()));
        ++senders;
      }
      if (member(expected, "body_from") == "text/plain" && !member(expected, "body_text").empty()) {
        // The first line: Python reads some undecodable parts as raw text where we skip them.
        std::string raw = member(expected, "body_text");
        std::size_t firstLine = raw.find_first_not_of("\r\n ");
        firstLine = firstLine == std::string::npos ? 0 : firstLine;
        std::string body = words(raw.substr(firstLine, raw.find('\n', firstLine) - firstLine));
        std::string text = words(testing::stringOf(values, "kMDItemTextContent"));
        EXPECT_NE(text.find(body.substr(0, 60)), std::string::npos) << text.substr(0, 200);
        ++bodies;
      }
    }
  }
  EXPECT_GT(subjects, 25);
  EXPECT_GT(senders, 20);
  EXPECT_GT(bodies, 15);
}

// Every message of the corpus mailboxes, as Python's mailbox module splits them: each sender
// among the authors, and each plain body's first line in the text.
TEST(MailImporter, CorpusMailboxes) {
  ULVEK_REQUIRE_CORPUS();
  Bundle bundle("Mail", "UlvekMailImporterFactory");
  int messages = 0;
  for (const auto& entry : fs::directory_iterator(testing::corpusPath() / "docs" / "mbox")) {
    std::string name = entry.path().filename().string();
    if (name.ends_with(".json") || name.starts_with("damaged-")) continue;
    SCOPED_TRACE(name);
    auto expect = nlohmann::json::parse(testing::readFile(entry.path().string() + ".expect.json"));
    BundleAttributes values = bundle.import(entry.path().string());
    const std::string authors = testing::stringOf(values, "kMDItemAuthorEmailAddresses");
    const std::string text = words(testing::stringOf(values, "kMDItemTextContent"));
    for (const auto& message : expect["expected"]["messages"]) {
      ++messages;
      for (const auto& address : message["from_addresses"])
        EXPECT_NE(authors.find(address.get<std::string>()), std::string::npos) << authors;
      if (member(message, "body_from") != "text/plain") continue;
      std::string raw = member(message, "body_text");
      std::size_t start = raw.find_first_not_of("\r\n ");
      if (start == std::string::npos) continue;
      std::string line = words(raw.substr(start, raw.find('\n', start) - start));
      EXPECT_NE(text.find(line.substr(0, 60)), std::string::npos) << line;
    }
  }
  EXPECT_GE(messages, 10);
}

TEST(MailImporter, HtmlOnlyMessagesAndAttachments) {
  Bundle bundle("Mail", "UlvekMailImporterFactory");
  testing::TemporaryFolder folder;
  std::string html = folder.write(
      "html.eml",
      "From: Ann <ann@example.org>\r\nTo: Bob <bob@example.org>, team: c@example.org;\r\n"
      "Subject: =?UTF-8?B?R3LDvMOfZQ==?=\r\nDate: Tue, 1 Jun 2021 10:00:00 +0200\r\n"
      "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
      "Content-Type: multipart/alternative; boundary=c\r\n\r\n--c\r\n"
      "Content-Type: text/html; charset=iso-8859-1\r\n\r\n<p>Hall\xF6 <b>Welt</b></p>\r\n--c--\r\n"
      "--b\r\nContent-Type: application/pdf\r\nContent-Transfer-Encoding: base64\r\n"
      "Content-Disposition: attachment; filename=\"report.pdf\"\r\n\r\n"
      "JVBERi0xLjQKMSAwIG9iaiA8PCAvVHlwZSAvQ2F0YWxvZyA+PiBlbmRvYmoKdHJhaWxlciA8PCAvUm9vdCAxIDAgUiA+"
      "Pgo=\r\n--b\r\nContent-Type: text/plain\r\n"
      "Content-Disposition: attachment; filename=notes.txt\r\n\r\nattached words\r\n--b--\r\n");
  std::string log;
  BundleAttributes values = bundle.import(html, "", &log);
  // poppler's complaints about the cut PDF name the message they came from.
  EXPECT_NE(log.find("PDF attachment in " + html + ": "), std::string::npos) << log;
  EXPECT_EQ(log.find("\nSyntax "), std::string::npos) << log;
  EXPECT_EQ(testing::stringOf(values, "kMDItemTitle"), "Grüße");
  EXPECT_EQ(testing::stringOf(values, "kMDItemAuthors"), "Ann");
  EXPECT_EQ(testing::stringOf(values, "kMDItemRecipientEmailAddresses"),
            "bob@example.org|c@example.org");
  EXPECT_EQ(testing::numberOf(values, "kMDItemContentCreationDate"), 1622534400.0);
  EXPECT_EQ(words(testing::stringOf(values, "kMDItemTextContent")),
            "Hallö Welt report.pdf notes.txt attached words");
}

// A Word 97 attachment (the project's word-processor fixture) is read with ulvekbot's reader,
// known by its type or else by its name; its text follows the name.
TEST(MailImporter, AttachedWordDocumentGivesItsText) {
  Bundle bundle("Mail", "UlvekMailImporterFactory");
  testing::TemporaryFolder folder;
  const fs::path document = testing::dataPath() / "wordprocessor/doc/compressed.doc";
  const std::string bytes = testing::readFile(document);
  ASSERT_FALSE(bytes.empty()) << document;
  const std::string expected =
      nlohmann::json::parse(testing::readFile(document.string() + ".expect.json"))["text"];
  std::string encoded = base64({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
  std::string lines;
  for (std::size_t i = 0; i < encoded.size(); i += 76) lines += encoded.substr(i, 76) + "\r\n";
  const std::pair<std::string, std::string> rows[] = {
      {"application/msword", "prices"},
      {"application/octet-stream", "prices.doc"},
  };
  for (const auto& [type, name] : rows) {
    SCOPED_TRACE(type);
    std::string message =
        "From: a@example.org\r\nSubject: Prices\r\nMIME-Version: 1.0\r\n"
        "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\nContent-Type: " +
        type +
        "\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: attachment; "
        "filename=\"" +
        name + "\"\r\n\r\n" + lines + "--b--\r\n";
    BundleAttributes values = bundle.import(folder.write("word.eml", message));
    EXPECT_EQ(words(testing::stringOf(values, "kMDItemTextContent")),
              words(name + "\n" + expected));
  }
}

// Attached documents of the corpus are read: PDF with poppler, the word-processor formats (Word
// 97 too) with ulvekbot's readers, HTML with its conversion; each text follows the attachment's
// name.
TEST(MailImporter, CorpusAttachedDocumentsGiveTheirText) {
  ULVEK_REQUIRE_CORPUS();
  Bundle bundle("Mail", "UlvekMailImporterFactory");
  testing::TemporaryFolder folder;
  struct Attachment {
    std::string file, type, expected;
  };
  const std::vector<Attachment> attachments = {
      {"pdf/tika-testPDF.pdf", "application/pdf", "Content Analysis Toolkit"},
      {"docx/made-report.docx",
       "application/vnd.openxmlformats-officedocument.wordprocessingml.document",
       "Quarterly Import Report"},
      {"rtf/tika-testRTFWindowsCodepage1250.rtf", "application/rtf", "zażółć gęślą jaźń"},
      {"odt/tika-testODTNoMeta.odt", "application/octet-stream", "Test text"},
      {"doc/wordextractor-test11.doc", "application/msword", "parsing the Word file"},
  };
  std::string message =
      "From: a@example.org\r\nSubject: Files\r\nMIME-Version: 1.0\r\n"
      "Content-Type: multipart/mixed; boundary=b\r\n\r\n--b\r\n"
      "Content-Type: text/plain\r\n\r\nSee attached.\r\n";
  for (const Attachment& attachment : attachments) {
    std::string bytes = testing::readFile(testing::corpusPath() / "docs" / attachment.file);
    std::string encoded =
        base64({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
    message += "--b\r\nContent-Type: " + attachment.type +
               "\r\nContent-Transfer-Encoding: base64\r\nContent-Disposition: attachment; "
               "filename=\"" +
               fs::path(attachment.file).filename().string() + "\"\r\n\r\n";
    for (std::size_t i = 0; i < encoded.size(); i += 76) message += encoded.substr(i, 76) + "\r\n";
  }
  message +=
      "--b\r\nContent-Type: text/html\r\nContent-Disposition: attachment; filename=page.html"
      "\r\n\r\n<p>Attached <b>page</b></p>\r\n--b--\r\n";
  BundleAttributes values = bundle.import(folder.write("files.eml", message));
  std::string text = words(testing::stringOf(values, "kMDItemTextContent"));
  for (const Attachment& attachment : attachments) {
    EXPECT_NE(text.find(fs::path(attachment.file).filename().string()), std::string::npos);
    EXPECT_NE(text.find(attachment.expected), std::string::npos) << attachment.file;
  }
  EXPECT_NE(text.find("page.html Attached page"), std::string::npos) << text.substr(0, 300);
}

TEST(MailImporter, HostileMessagesAnswerLittle) {
  Bundle bundle("Mail", "UlvekMailImporterFactory");
  testing::TemporaryFolder folder;
  std::string nested = "Subject: deep\r\nContent-Type: multipart/mixed; boundary=x0\r\n\r\n";
  for (int i = 1; i < 10000; ++i)
    nested += "--x" + std::to_string(i - 1) + "\r\nContent-Type: multipart/mixed; boundary=x" +
              std::to_string(i) + "\r\n\r\n";
  const std::pair<std::string, std::string> rows[] = {
      {"empty.eml", ""},
      {"nested.eml", nested},
      {"endless-base64.eml",
       "Subject: b\r\nContent-Transfer-Encoding: base64\r\n\r\n" + std::string(1 << 20, 'Q')},
      {"count-only.emlx", "99999999\n"},
  };
  for (const auto& [name, bytes] : rows) {
    BundleAttributes values = bundle.import(folder.write(name, bytes));
    SUCCEED() << name << " " << values.size();
  }
}

}  // namespace
}  // namespace ulvek
