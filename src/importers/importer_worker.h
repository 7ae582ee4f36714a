#pragma once

namespace ulvek {

// The worker process's loop: loads importer plug-ins and calls them on the host's requests, read
// from `in` and answered on `out`, until the host closes the pipe. Plug-ins run here so that one
// that crashes, hangs or scribbles costs its own request and never the service.
int runImporterWorker(int in, int out);

}  // namespace ulvek
