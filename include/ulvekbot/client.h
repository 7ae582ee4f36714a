#pragma once

// The ulvekbot client library: start the ulvekbotd64 helper (or any helper that registers a name
// on the D-Bus session bus), reach its root object and import files through it.
//
//   auto helper = ulvek::HelperTask::initWithPath("/usr/bin/ulvekbotd64", "ulvekbotd64",
//                                                 ulvek::kUlvekBotHelperProtocol, 15.0,
//                                                 ulvek::kQualityOfServiceUtility);
//   if (auto proxy = helper->proxy())
//     if (auto result = proxy->openFile("/home/me/report.pdf"); result.ok()) ...
//   helper->terminate();
//
// Link with `pkg-config --cflags --libs ulvekbot-client`.

#include "client/child_process.h"
#include "client/connection_errors.h"
#include "client/helper_proxy.h"
#include "client/helper_task.h"
#include "client/thread_connections.h"

namespace ulvek {

// The service's registered name and interface.
inline constexpr const char* kUlvekBotHelperName = "ulvekbotd64";
inline constexpr const char* kUlvekBotHelperProtocol = "com.ulvek_technologies.UlvekBotHelper";

}  // namespace ulvek
