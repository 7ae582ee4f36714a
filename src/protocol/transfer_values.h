#pragma once

#include <systemd/sd-bus.h>

#include "protocol/import_result.h"

// Results as the Transfer interface answers them: the classic dictionary, except that a text over
// kInlineTextBytes travels as "TextFile" (a sealed memory file of UTF-8) and a text the import cut
// is marked "TextTruncated" (see protocol/dbus_interface.h). The functions answer as sd-bus does.
namespace ulvek::dbus {

int appendTransferResult(sd_bus_message* message, const ImportResult& result);

// Reads such an answer with the memory file's text back in "Text"; "TextTruncated" stays a key
// of the result. A "TextFile" that is not a sealed memory file is -EBADMSG.
int readTransferResult(sd_bus_message* message, ImportResult& result);

}  // namespace ulvek::dbus
