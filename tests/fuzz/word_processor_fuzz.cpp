// The word-processor readers on bytes: the first byte picks how the rest arrives — as the body
// of a DOCX, as an ODT's content, as flat XML, or as raw bytes the reader must sniff.
#include <minizip/zip.h>

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "fuzz_support.h"
#include "readers/attributed/attributed_reader.h"

namespace {

std::string zipped(const char* member, const std::uint8_t* data, std::size_t size, bool odt) {
  std::string path = "/tmp/ulvek-word-fuzz-" + std::to_string(::getpid()) + ".zip";
  zipFile zip = zipOpen(path.c_str(), APPEND_STATUS_CREATE);
  if (!zip) return {};
  auto add = [&](const char* name, const void* bytes, unsigned length) {
    zip_fileinfo info{};
    if (zipOpenNewFileInZip(zip, name, &info, nullptr, 0, nullptr, 0, nullptr, 0, 0) != ZIP_OK)
      return;
    zipWriteInFileInZip(zip, bytes, length);
    zipCloseFileInZip(zip);
  };
  if (odt) add("mimetype", "application/vnd.oasis.opendocument.text", 39);
  add(member, data, static_cast<unsigned>(size));
  zipClose(zip, nullptr);
  return path;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  std::uint8_t mode = data[0] % 4;
  ++data;
  --size;
  if (mode == 3) {
    ulvek::attributedDocumentReader().read(
        ulvek::ReaderSource::data(ulvek::Bytes(data, size), "x.doc"));
    return 0;
  }
  std::string path = mode == 0   ? zipped("word/document.xml", data, size, false)
                     : mode == 1 ? zipped("content.xml", data, size, true)
                                 : std::string();
  if (mode == 2) {
    std::string flat =
        "<office:document office:mimetype=\"application/vnd.oasis.opendocument.text\">" +
        std::string(reinterpret_cast<const char*>(data), size);
    ulvek::attributedDocumentReader().read(ulvek::ReaderSource::data(
        ulvek::Bytes(reinterpret_cast<const std::uint8_t*>(flat.data()), flat.size()), "x.fodt"));
    return 0;
  }
  if (!path.empty()) {
    ulvek::attributedDocumentReader().read(ulvek::ReaderSource::file(path));
    std::remove(path.c_str());
  }
  return 0;
}
