// The EPUB reader's container and package events, and its rights files: the bytes become the
// package document (or the rights file) of a book made here, around one chapter, which is then
// read as text, table of contents, merged HTML and cover.
#include <minizip/zip.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "fuzz_support.h"
#include "readers/epub/epub_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  bool rights = data[0] % 2;
  std::string path = "/tmp/ulvek-epub-fuzz-" + std::to_string(::getpid()) + ".epub";
  zipFile zip = zipOpen(path.c_str(), APPEND_STATUS_CREATE);
  if (!zip) return 0;
  auto add = [&](const char* name, const void* bytes, std::size_t length) {
    zip_fileinfo info{};
    if (zipOpenNewFileInZip(zip, name, &info, nullptr, 0, nullptr, 0, nullptr, 0, 0) != ZIP_OK)
      return;
    zipWriteInFileInZip(zip, bytes, static_cast<unsigned>(length));
    zipCloseFileInZip(zip);
  };
  static const std::string container =
      "<container><rootfile full-path=\"OEBPS/p.opf\"/></container>";
  static const std::string opf =
      "<package><manifest><item id=\"a\" href=\"a.xhtml\" media-type=\"application/xhtml+xml\"/>"
      "</manifest><spine><itemref idref=\"a\"/></spine></package>";
  add("META-INF/container.xml", container.data(), container.size());
  add("OEBPS/a.xhtml", "<p>chapter</p>", 14);
  if (rights) {
    add("OEBPS/p.opf", opf.data(), opf.size());
    add("META-INF/rights.xml", data + 1, size - 1);
  } else {
    add("OEBPS/p.opf", data + 1, size - 1);
  }
  zipClose(zip, nullptr);
  ulvek::EPUBParser book(path);
  book.textContents();
  book.rootChildren();
  book.htmlContents();
  book.cover();
  std::remove(path.c_str());
  return 0;
}
