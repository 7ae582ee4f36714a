#include "platform/content_types.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "fork_test_files.h"
#include "platform/resource_fork.h"
#include "test_support.h"

namespace ulvek {
namespace {

using namespace testing;

constexpr std::string_view kPDF = "%PDF-1.4\ntrailer << /Root 1 0 R >>\n%%EOF\n";
constexpr std::string_view kHTML = "<!DOCTYPE html>\n<html><head><title>T</title></head></html>\n";
constexpr std::string_view kPlainText = "Just some words in a file,\nline after line.\n";
constexpr std::string_view kBinary = "\x01\x02\x03\xff\xfe\x00\x00\x10 binary \x7f\x80";

TEST(ContentTypes, ReadersComeFromTheNearestAncestor) {
  struct Row {
    std::string_view type;
    std::optional<std::string_view> reader;
  };
  const Row rows[] = {
      {"public.html", "HTML"},
      {"public.xhtml", "HTML"},  // its own, before public.xml's
      {"public.rss", "XML"},
      {"public.c-source", "plain text"},
      {"public.json", "plain text"},
      {"org.openxmlformats.wordprocessingml.template", "attributed document"},
      {"com.adobe.encapsulated-postscript", "PDF"},  // its own, before its image parent's
      {"public.jpeg", "importer"},
      {"org.idpf.epub-container", "EPUB"},
      {"com.microsoft.chm-archive", "importer"},
      {"public.folder", std::nullopt},
      {"dyn.filename-extension.qqq", std::nullopt},
  };
  for (const Row& row : rows) EXPECT_EQ(readerForContentType(row.type), row.reader) << row.type;
}

TEST(ContentTypes, ExtensionsMIMETypesAndConformance) {
  EXPECT_EQ(contentTypeForExtension("HTM"), "public.html");
  EXPECT_EQ(contentTypeForExtension("qqq"), std::nullopt);
  EXPECT_EQ(contentTypeForMIMEType("text/html; charset=utf-8"), "public.html");
  EXPECT_EQ(contentTypeForMIMEType("APPLICATION/PDF"), "com.adobe.pdf");
  EXPECT_EQ(contentTypeForMIMEType("application/x-unknown"), std::nullopt);
  EXPECT_EQ(contentTypeForTypeCode("PDF "), "com.adobe.pdf");
  EXPECT_EQ(contentTypeForTypeCode("BMP "), "com.microsoft.bmp");
  EXPECT_EQ(contentTypeForTypeCode("WDBN"), "com.microsoft.word.doc");
  EXPECT_EQ(contentTypeForTypeCode("pdf "), std::nullopt);  // codes are exact
  EXPECT_EQ(contentTypeForTypeCode("PDF"), std::nullopt);

  EXPECT_TRUE(typeConformsTo("public.html", "public.text"));
  EXPECT_FALSE(typeConformsTo("public.html", "public.plain-text"));
  EXPECT_TRUE(typeConformsTo("public.c-source", "public.plain-text"));
  EXPECT_FALSE(typeConformsTo("public.xml", "public.plain-text"));
  EXPECT_TRUE(typeConformsTo("org.idpf.epub-container", "public.zip-archive"));
  EXPECT_TRUE(typeConformsTo("dyn.filename-extension.qqq", "dyn.filename-extension.qqq"));
  EXPECT_FALSE(typeConformsTo("dyn.filename-extension.qqq", "public.data"));
}

// A folder whose Finder flags carry the bundle bit is a package whatever its name.
std::string directory(const TemporaryFolder& folder, const char* name, bool bundleBit = false) {
  std::string path = (folder.path() / name).string();
  std::filesystem::create_directories(path);
  if (bundleBit) {
    std::string info(32, '\0');
    info[8] = 0x20;
    EXPECT_TRUE(setAttribute(path, kFinderInfoAttribute, info));
  }
  return path;
}

// A file whose Finder info carries a type code.
std::string withTypeCode(const std::string& path, const char (&code)[5]) {
  std::string info(32, '\0');
  info.replace(0, 4, code, 4);
  EXPECT_TRUE(setAttribute(path, kFinderInfoAttribute, info));
  return path;
}

// Links are followed for the type, not for the package test.
TEST(ContentTypes, TypeOfFileAndPackageTest) {
  TemporaryFolder folder;
  std::string link = (folder.path() / "link.app").string();
  std::filesystem::create_directory_symlink(directory(folder, "Tool.app"), link);
  struct Row {
    const char* name;
    std::string path;
    std::string type;
    bool package = false;
  };
  const Row rows[] = {
      {"PDF without extension", folder.write("document", kPDF), "com.adobe.pdf"},
      {"HTML without extension", folder.write("page", kHTML), "public.html"},
      {"text with unknown extension", folder.write("notes.qqq", kPlainText), "public.plain-text"},
      {"binary with unknown extension", folder.write("blob.qqq", kBinary),
       "dyn.filename-extension.qqq"},
      {"binary without extension", folder.write("blob", kBinary),
       "dyn.mime-type.application.octet-stream"},
      {"a text name wins over text contents", folder.write("text.html", kPlainText), "public.html"},
      {"a binary document under a text name", folder.write("page.html", kPDF), "com.adobe.pdf"},
      {"a PDF named as plain text", folder.write("x.txt", kPDF), "com.adobe.pdf"},
      {"a page named as plain text", folder.write("y.txt", kHTML), "public.html"},
      {"text named as plain text", folder.write("z.txt", kPlainText), "public.plain-text"},
      {"UTF-16 text under a text name", folder.write("card.vcf", std::string("\xFF\xFEh\0i\0", 6)),
       "public.vcard"},
      {"a name of another kind wins over contents", folder.write("x.jpg", kPDF), "public.jpeg"},
      {"file with a package extension", folder.write("file.rtfd", "x"), "com.apple.rtfd"},
      {"package folder", directory(folder, "Notes.rtfd"), "com.apple.rtfd", true},
      {"plain folder", directory(folder, "plain"), "public.folder"},
      {"folder with the bundle bit", directory(folder, "flagged", true), "com.apple.package", true},
      {"link to a package", link, "com.apple.application-bundle"},
      {"type code without extension", withTypeCode(folder.write("letter", kBinary), "WDBN"),
       "com.microsoft.word.doc"},
      {"type code with unknown extension", withTypeCode(folder.write("p.qqq", kBinary), "JPEG"),
       "public.jpeg"},
      {"a known extension wins over the type code",
       withTypeCode(folder.write("q.html", kHTML), "PDF "), "public.html"},
      {"a type code that says text hides a PDF", withTypeCode(folder.write("old", kPDF), "TEXT"),
       "com.adobe.pdf"},
      {"a type code that says text", withTypeCode(folder.write("older", kPlainText), "TEXT"),
       "public.plain-text"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(typeOfFile(row.path), row.type) << row.name;
    Result<bool> package = isPackageAtPath(row.path);
    ASSERT_TRUE(package.ok()) << row.name;
    EXPECT_EQ(*package, row.package) << row.name;
  }
  std::string missing = (folder.path() / "missing.app").string();
  EXPECT_EQ(typeOfFile(missing), std::nullopt);
  Result<bool> package = isPackageAtPath(missing);
  ASSERT_FALSE(package.ok());
  EXPECT_EQ(package.error().code, ENOENT);
  EXPECT_EQ(package.error().domain, kPOSIXErrorDomain);
  Result<bool> noPath = isPackageAtPath("");
  EXPECT_TRUE(noPath.ok() && !*noPath);
  EXPECT_EQ(sniffedMIMETypeOfFile("/nonexistent/file"), std::nullopt);
}

}  // namespace
}  // namespace ulvek
