// Office.mdimporter's own code: the XML walks over sheets, slides and OpenDocument content. The
// first byte picks the member the rest becomes, inside a zip made here, or a raw XLS file.
#include <minizip/zip.h>

#include "../../bundles/Office/office_importer.cpp"
#include "fuzz_support.h"
#include "importer_fuzz_support.h"

namespace {

constexpr const char* kMembers[] = {"xl/workbook.xml", "xl/sharedStrings.xml",
                                    "ppt/presentation.xml", "content.xml", "docProps/core.xml"};

void writeZip(const std::string& path, const char* member, const std::uint8_t* data,
              std::size_t size) {
  zipFile zip = zipOpen(path.c_str(), APPEND_STATUS_CREATE);
  if (!zip) return;
  auto add = [&](const char* name, const void* bytes, unsigned length) {
    zip_fileinfo info{};
    if (zipOpenNewFileInZip(zip, name, &info, nullptr, 0, nullptr, 0, nullptr, Z_DEFLATED, 1) !=
        ZIP_OK)
      return;
    zipWriteInFileInZip(zip, bytes, length);
    zipCloseFileInZip(zip);
  };
  if (std::string(member) == "content.xml") add("mimetype", "x", 1);
  // The workbook and the presentation point at the fuzzed part too.
  add("xl/_rels/workbook.xml.rels",
      "<Relationships><Relationship Id=\"r\" Target=\"sharedStrings.xml\"/></Relationships>", 77);
  add(member, data, static_cast<unsigned>(size));
  zipClose(zip, nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size == 0) return 0;
  std::uint8_t choice = data[0] % 6;
  if (choice == 5) {
    ulvek::fuzzing::importScratch(importOffice,
                                  ulvek::fuzzing::writeScratch("sheet.xls", data + 1, size - 1));
    return 0;
  }
  std::string path = ulvek::fuzzing::writeScratch("document.zip", nullptr, 0);
  std::remove(path.c_str());
  writeZip(path, kMembers[choice], data + 1, size - 1);
  ulvek::fuzzing::importScratch(importOffice, path);
  return 0;
}
