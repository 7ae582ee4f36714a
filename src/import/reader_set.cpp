#include "import/reader_set.h"

#include "importers/importer_host.h"
#include "importers/metadata_importer.h"
#include "readers/addresscard/address_card_reader.h"
#include "readers/attributed/attributed_reader.h"
#include "readers/epub/epub_reader.h"
#include "readers/textbundle/text_bundle_reader.h"
#include "readers/textclipping/text_clipping_reader.h"
#include "readers/webarchive/web_archive_reader.h"
#include "readers/wordperfect/wordperfect_reader.h"
#include "registered_readers.inc"

namespace ulvek {

const ReaderSet& ReaderSet::builtin() {
  // One line per reader family; a route missing here says so in `ulvekbot classify` and in the
  // log when a file takes it.
  static const ReaderSet readers = [] {
    ReaderSet set;
    // PDF files are read by their importer, as other files no reader knows.
    set.set(Route::Importer, &importerHost()).set(Route::PDF, &importerHost());
    set.set(Route::AttributedDocument, &attributedDocumentReader());
    set.set(Route::TextClipping, &textClippingReader());
    set.set(Route::AddressCard, &addressCardReader());
    set.set(Route::WebArchive, &webArchiveReader());
    set.set(Route::TextBundle, &textBundleReader());
    set.set(Route::WordPerfect, &wordPerfectReader());
    set.set(Route::EPUB, &typedEPUBReader());
    // Families that name their reader in their CMakeLists.txt.
#define ULVEK_REGISTERED_READER(name, reader) set.setNamed(name, &reader());
#include "registered_readers.inc"
#undef ULVEK_REGISTERED_READER
    // Books are read before any importer is asked; where no importer answers, the host reads
    // text bundles itself.
    MetaDataImporter::sharedImporter().setBookReader(&epubReader());
    MetaDataImporter::sharedImporter().setTextBundleReader(&textBundleReader());
    return set;
  }();
  return readers;
}

}  // namespace ulvek
