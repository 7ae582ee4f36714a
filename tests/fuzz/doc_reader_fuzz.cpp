// The Word 97–2003 reader on bytes: the first byte picks whether the rest is a whole OLE2
// container, or the two streams the text is read from (a 16-bit length, the "WordDocument"
// stream, then the table stream), which reach the piece table without the container around it.
#include <cstdint>

#include "fuzz_support.h"
#include "readers/doc/word_document_reader.h"
#include "readers/doc/word_document_text.h"

// libgsf drops a property value when a summary information stream is malformed. Its frames
// show only with the slow unwinder, under which the leak is suppressed.
extern "C" const char* __asan_default_options() { return "fast_unwind_on_malloc=0"; }
extern "C" const char* __lsan_default_suppressions() {
  return "leak:gsf_doc_meta_data_read_from_msole\n";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const ulvek::ReadingDeadline deadline(ulvek::fuzzing::kInputTime);
  if (size < 3) return 0;
  bool container = data[0] % 2 == 0;
  std::size_t split = data[1] | data[2] << 8;
  data += 3, size -= 3;
  if (container) {
    std::optional<ulvek::ReaderOutput> output =
        ulvek::readWordDocument(ulvek::ReaderSource::data(ulvek::Bytes(data, size), "x.doc"));
    // A character takes at least one byte of the file; a list label or a note's number adds
    // fewer than a hundred.
    ulvek::fuzzing::check(!output || !output->text || output->text->size() <= 100 * size);
    return 0;
  }
  if (split > size) split = size;
  ulvek::Bytes wordDocument(data, split), table(data + split, size - split);
  std::optional<ulvek::WordFileInformation> information =
      ulvek::readWordFileInformation(wordDocument);
  if (!information) return 0;
  ulvek::WordDocumentText text = ulvek::readWordDocumentText(*information, wordDocument, table);
  ulvek::fuzzing::check(text.text.size() <= 100 * wordDocument.size());
  return 0;
}
