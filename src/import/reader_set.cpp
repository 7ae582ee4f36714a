#include "import/reader_set.h"

#include "importers/importer_host.h"

namespace ulvek {

const ReaderSet& ReaderSet::builtin() {
  // One line per reader family; a route missing here says so in `ulvekbot classify` and in the
  // log when a file takes it.
  static const ReaderSet readers = [] {
    ReaderSet set;
    // PDF files are read by their importer, as other files no reader knows.
    set.set(Route::Importer, &importerHost()).set(Route::PDF, &importerHost());
    return set;
  }();
  return readers;
}

}  // namespace ulvek
