#include "platform/content_types.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "platform/extended_attributes.h"
#include "test_support.h"

namespace ulvek {
namespace {

using testing::TemporaryFolder;

constexpr std::string_view kMinimalPDF =
    "%PDF-1.4\n1 0 obj << /Type /Catalog /Pages 2 0 R >> endobj\n"
    "2 0 obj << /Type /Pages /Kids [] /Count 0 >> endobj\ntrailer << /Root 1 0 R >>\n%%EOF\n";
constexpr std::string_view kHTML =
    "<!DOCTYPE html>\n<html><head><title>T</title></head><body><p>Hello</p></body></html>\n";
constexpr std::string_view kPlainText = "Just some words in a file,\nline after line.\n";
constexpr std::string_view kBinary = "\x01\x02\x03\xff\xfe\x00\x00\x10 binary \x7f\x80";

TEST(ContentTypes, ExtensionsAndMIMETypes) {
  struct Row {
    std::string_view key;
    bool isMIMEType;
    std::optional<std::string_view> expected;
  };
  const Row rows[] = {
      {"html", false, "public.html"},
      {"HTM", false, "public.html"},
      {"txt", false, "public.plain-text"},
      {"pdf", false, "com.adobe.pdf"},
      {"Rtfd", false, "com.apple.rtfd"},
      {"docx", false, "org.openxmlformats.wordprocessingml.document"},
      {"odt", false, "org.oasis-open.opendocument.text"},
      {"epub", false, "org.idpf.epub-container"},
      {"webarchive", false, "com.apple.webarchive"},
      {"eml", false, "com.apple.mail.email"},
      {"vcf", false, "public.vcard"},
      {"plist", false, "com.apple.property-list"},
      {"jpg", false, "public.jpeg"},
      {"mp3", false, "public.mp3"},
      {"mov", false, "com.apple.quicktime-movie"},
      {"zip", false, "public.zip-archive"},
      {"textbundle", false, "org.textbundle.package"},
      {"qqq", false, std::nullopt},
      {"", false, std::nullopt},
      {"text/html", true, "public.html"},
      {"text/html; charset=utf-8", true, "public.html"},
      {"APPLICATION/PDF", true, "com.adobe.pdf"},
      {"application/msword", true, "com.microsoft.word.doc"},
      {"message/rfc822", true, "public.email-message"},
      {"text/x-c", true, "public.c-source"},
      {"application/epub+zip", true, "org.idpf.epub-container"},
      {"application/x-unknown", true, std::nullopt},
      {"", true, std::nullopt},
  };
  for (const Row& row : rows) {
    auto found =
        row.isMIMEType ? contentTypeForMIMEType(row.key) : contentTypeForExtension(row.key);
    EXPECT_EQ(found, row.expected) << row.key;
  }
  EXPECT_EQ(preferredExtension("public.jpeg"), "jpg");
  EXPECT_EQ(preferredMIMEType("com.adobe.pdf"), "application/pdf");
  EXPECT_EQ(preferredMIMEType("public.folder"), std::nullopt);
  EXPECT_EQ(contentTypeInfo("dyn.whatever"), nullptr);
}

TEST(ContentTypes, ConformanceFollowsParents) {
  struct Row {
    std::string_view type;
    std::string_view conformsTo;
    bool expected;
  };
  const Row rows[] = {
      {"public.html", "public.text", true},
      {"public.plain-text", "public.text", true},
      {"public.html", "public.plain-text", false},
      {"public.plain-text", "public.html", false},
      {"public.c-source", "public.plain-text", true},
      {"public.python-script", "public.plain-text", true},
      {"public.xml", "public.text", true},
      {"public.xml", "public.plain-text", false},
      {"public.jpeg", "public.image", true},
      {"public.jpeg", "public.data", true},
      {"public.jpeg", "public.text", false},
      {"com.apple.rtfd", "com.apple.package", true},
      {"com.apple.metadata-importer", "com.apple.package", true},
      {"org.idpf.epub-container", "public.zip-archive", true},
      {"public.text", "public.html", false},
      {"public.html", "public.html", true},
      {"dyn.filename-extension.qqq", "dyn.filename-extension.qqq", true},
      {"dyn.filename-extension.qqq", "public.data", false},
      {"", "", false},
  };
  for (const Row& row : rows)
    EXPECT_EQ(typeConformsTo(row.type, row.conformsTo), row.expected)
        << row.type << " → " << row.conformsTo;
}

TEST(ContentTypes, TypeOfFileUsesExtensionThenContents) {
  TemporaryFolder folder;
  std::string rtfd = (folder.path() / "Notes.rtfd").string();
  std::filesystem::create_directory(rtfd);
  std::string plainFolder = (folder.path() / "plain").string();
  std::filesystem::create_directory(plainFolder);
  std::string bundleBit = (folder.path() / "flagged").string();
  std::filesystem::create_directory(bundleBit);
  Data info(32, 0);
  info[8] = 0x20;
  ASSERT_TRUE(writeMetadataAttribute(bundleBit, "com.apple.FinderInfo", info, false));
  std::string target = folder.write("target.pdf", kMinimalPDF);
  std::string link = (folder.path() / "link").string();
  std::filesystem::create_symlink(target, link);

  struct Row {
    const char* name;
    std::string path;
    std::optional<std::string> expected;
  };
  const Row rows[] = {
      {"PDF without extension", folder.write("document", kMinimalPDF), "com.adobe.pdf"},
      {"HTML without extension", folder.write("page", kHTML), "public.html"},
      {"text without extension", folder.write("README", kPlainText), "public.plain-text"},
      {"text with unknown extension", folder.write("notes.qqq", kPlainText), "public.plain-text"},
      {"binary with unknown extension", folder.write("blob.qqq", kBinary),
       "dyn.filename-extension.qqq"},
      {"binary without extension", folder.write("blob", kBinary),
       "dyn.mime-type.application.octet-stream"},
      {"extension wins over contents", folder.write("page.html", kMinimalPDF), "public.html"},
      {"upper-case extension", folder.write("REPORT.PDF", kMinimalPDF), "com.adobe.pdf"},
      {"package folder", rtfd, "com.apple.rtfd"},
      {"plain folder", plainFolder, "public.folder"},
      {"folder with the bundle bit", bundleBit, "com.apple.package"},
      {"symbolic link is followed", link, "com.adobe.pdf"},
  };
  for (const Row& row : rows) {
    std::optional<Error> error;
    EXPECT_EQ(typeOfFile(row.path, &error), row.expected) << row.name;
    EXPECT_FALSE(error) << row.name;
  }

  std::optional<Error> error;
  EXPECT_EQ(typeOfFile((folder.path() / "missing").string(), &error), std::nullopt);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, kPOSIXErrorDomain);
  EXPECT_EQ(error->code, ENOENT);
}

TEST(ContentTypes, SniffsBytes) {
  auto bytes = [](std::string_view text) {
    return std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  };
  EXPECT_EQ(sniffedMIMEType(bytes(kMinimalPDF)), "application/pdf");
  EXPECT_EQ(sniffedMIMEType(bytes(kHTML)), "text/html");
  EXPECT_EQ(sniffedMIMETypeOfFile("/nonexistent/file"), std::nullopt);
}

TEST(ContentTypes, PackageTest) {
  TemporaryFolder folder;
  auto directory = [&](const char* name) {
    std::string path = (folder.path() / name).string();
    std::filesystem::create_directories(path);
    return path;
  };
  struct Row {
    std::string path;
    bool expected;
  };
  std::string app = directory("Tool.app");
  std::string appLink = (folder.path() / "link.app").string();
  std::filesystem::create_directory_symlink(app, appLink);
  std::string flagged = directory("flagged");
  Data info(32, 0);
  info[8] = 0x20;
  ASSERT_TRUE(writeMetadataAttribute(flagged, "com.apple.FinderInfo", info, false));
  const Row rows[] = {
      {directory("a.rtfd"), true},
      {directory("b.textbundle"), true},
      {directory("c.pdfd"), true},
      {directory("d.scptd"), true},
      {directory("e.oo3"), true},
      {directory("f.chatlog"), true},
      {app, true},
      {directory("g.bundle"), true},
      {directory("h.mdimporter"), true},
      {directory("i.pages"), true},
      {directory("j.key"), true},
      {directory("k.NUMBERS"), true},
      {flagged, true},
      {directory("plain"), false},
      {directory("notes.txt"), false},
      {directory("archive.zip"), false},
      {folder.write("file.rtfd", "x"), false},
      {appLink, false},  // the link itself is no package
  };
  for (const Row& row : rows) {
    std::optional<Error> error;
    EXPECT_EQ(isPackageAtPath(row.path, &error), row.expected) << row.path;
    EXPECT_FALSE(error) << row.path;
  }
  std::optional<Error> error;
  EXPECT_FALSE(isPackageAtPath((folder.path() / "missing.app").string(), &error));
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ENOENT);
  EXPECT_FALSE(isPackageAtPath("", &error));
  EXPECT_FALSE(error);
}

}  // namespace
}  // namespace ulvek
