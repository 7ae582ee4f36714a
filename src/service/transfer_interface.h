#pragma once

#include <systemd/sd-bus.h>

namespace ulvek {

// The methods of com.ulvek_technologies.UlvekBotHelper.Transfer, served on the root object beside
// the classic interface; their userdata is the DBusService. Data arrives as a sealed memory file,
// paths as bytes, and texts over 32 MiB leave as a sealed memory file (protocol/transfer_values.h).
extern const sd_bus_vtable kTransferVTable[];

}  // namespace ulvek
