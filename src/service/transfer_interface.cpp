#include "service/transfer_interface.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

#include "base/log.h"
#include "protocol/dbus_interface.h"
#include "protocol/sealed_memfd.h"
#include "protocol/transfer_values.h"
#include "service/dbus_service.h"

namespace ulvek {
namespace {

MIMETypeHelper& helperOf(void* userdata) { return static_cast<DBusService*>(userdata)->helper(); }

// As the classic operations: an escaping exception is logged and answered as an error reply.
template <typename Operation>
int guarded(std::string_view selector, sd_bus_error* replyError, Operation operation) {
  auto errorReply = [&] {
    DBusErrorReply reply = errorReplyFor(std::current_exception());
    return sd_bus_error_set(replyError, reply.name.c_str(), reply.message.c_str());
  };
  try {
    return operation();
  } catch (const std::exception& exception) {
    logException(selector, MIMETypeHelper::kClassName, exception);
    return errorReply();
  } catch (...) {
    logUnknownException(selector, MIMETypeHelper::kClassName);
    return errorReply();
  }
}

int replyWithResult(sd_bus_message* call, const ImportResult& result, sd_bus_error* replyError,
                    std::string_view origin) {
  sd_bus_message* reply = nullptr;
  int r = sd_bus_message_new_method_return(call, &reply);
  if (r >= 0) r = dbus::appendTransferResult(reply, result);
  if (r >= 0) r = sd_bus_send(nullptr, reply, nullptr);
  sd_bus_message_unref(reply);
  if (r < 0) {
    logLine("Cannot send the result: " + std::string(origin) + ": " + std::strerror(-r));
    return sd_bus_error_setf(replyError, SD_BUS_ERROR_FAILED, "Cannot send the result: %s",
                             std::strerror(-r));
  }
  return 1;
}

// A path as bytes: any file name the system allows, so anything but NUL.
int readPathBytes(sd_bus_message* call, std::string& path, sd_bus_error* replyError) {
  const void* bytes = nullptr;
  std::size_t size = 0;
  int r = sd_bus_message_read_array(call, 'y', &bytes, &size);
  if (r < 0) return r;
  path.assign(static_cast<const char*>(bytes), size);
  if (path.find('\0') != std::string::npos) {
    return sd_bus_error_set(replyError, SD_BUS_ERROR_INVALID_ARGS, "A path cannot hold a NUL byte");
  }
  return 1;
}

template <ImportResult (MIMETypeHelper::*open)(const std::string&)>
int onOpenPath(std::string_view selector, sd_bus_message* call, void* userdata,
               sd_bus_error* replyError) {
  std::string path;
  if (int r = readPathBytes(call, path, replyError); r < 0 || sd_bus_error_is_set(replyError))
    return r;
  return guarded(selector, replyError, [&] {
    ScopedTextLimit limit(dbus::kTransferTextBytes);
    ImportResult result = (helperOf(userdata).*open)(path);
    return replyWithResult(call, result, replyError, path);
  });
}

template <bool (MIMETypeHelper::*ask)(const std::string&)>
int onAskPath(std::string_view selector, sd_bus_message* call, void* userdata,
              sd_bus_error* replyError) {
  std::string path;
  if (int r = readPathBytes(call, path, replyError); r < 0 || sd_bus_error_is_set(replyError))
    return r;
  return guarded(selector, replyError, [&] {
    bool answer = (helperOf(userdata).*ask)(path);
    return sd_bus_reply_method_return(call, "b", int{answer});
  });
}

int onOpenData(sd_bus_message* call, void* userdata, sd_bus_error* replyError) {
  int descriptor = -1;
  const char* url = nullptr;
  const char* mimeType = nullptr;
  if (int r = sd_bus_message_read(call, "hss", &descriptor, &url, &mimeType); r < 0) return r;
  // The caller's size is never asked for: the sealed file's own size is what is read.
  Result<SealedBytes> data = SealedBytes::map(descriptor);
  if (!data) {
    // A refusal names InvalidArgs; a failed system call is the service's own failure.
    const Error& error = data.error();
    const bool refused = error.domain == SD_BUS_ERROR_INVALID_ARGS;
    return sd_bus_error_set(replyError, refused ? SD_BUS_ERROR_INVALID_ARGS : SD_BUS_ERROR_FAILED,
                            error.localizedDescription.c_str());
  }
  auto optionalText = [](const char* text) -> std::optional<TextString> {
    if (!text || !*text) return std::nullopt;
    return fromUtf8(text);
  };
  return guarded("openData:URL:MIMEType:", replyError, [&] {
    ScopedTextLimit limit(dbus::kTransferTextBytes);
    // As in the classic call, no bytes stand for absent data.
    std::optional<Bytes> bytes;
    if (!data->bytes().empty()) bytes = data->bytes();
    ImportResult result =
        helperOf(userdata).openDataBytes(bytes, optionalText(url), optionalText(mimeType));
    return replyWithResult(call, result, replyError, url && *url ? url : "(data)");
  });
}

int onOpenDirectory(sd_bus_message* call, void* userdata, sd_bus_error* replyError) {
  return onOpenPath<&MIMETypeHelper::openDirectory>("openDirectory:", call, userdata, replyError);
}
int onOpenFile(sd_bus_message* call, void* userdata, sd_bus_error* replyError) {
  return onOpenPath<&MIMETypeHelper::openFile>("openFile:", call, userdata, replyError);
}
int onOpenAttributes(sd_bus_message* call, void* userdata, sd_bus_error* replyError) {
  return onOpenPath<&MIMETypeHelper::openAttributes>("openAttributes:", call, userdata, replyError);
}
int onSupportsFile(sd_bus_message* call, void* userdata, sd_bus_error* replyError) {
  return onAskPath<&MIMETypeHelper::supportsFile>("supportsFile:", call, userdata, replyError);
}
int onIsPlainFile(sd_bus_message* call, void* userdata, sd_bus_error* replyError) {
  return onAskPath<&MIMETypeHelper::isPlainFile>("isPlainFile:", call, userdata, replyError);
}

}  // namespace

const sd_bus_vtable kTransferVTable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_NAMES("OpenData", "hss",
                             SD_BUS_PARAM(data) SD_BUS_PARAM(url) SD_BUS_PARAM(mimeType), "a{sv}",
                             SD_BUS_PARAM(result), onOpenData, 0),
    SD_BUS_METHOD_WITH_NAMES("OpenDirectory", "ay", SD_BUS_PARAM(path), "a{sv}",
                             SD_BUS_PARAM(result), onOpenDirectory, 0),
    SD_BUS_METHOD_WITH_NAMES("OpenFile", "ay", SD_BUS_PARAM(path), "a{sv}", SD_BUS_PARAM(result),
                             onOpenFile, 0),
    SD_BUS_METHOD_WITH_NAMES("OpenAttributes", "ay", SD_BUS_PARAM(path), "a{sv}",
                             SD_BUS_PARAM(result), onOpenAttributes, 0),
    SD_BUS_METHOD_WITH_NAMES("SupportsFile", "ay", SD_BUS_PARAM(path), "b", SD_BUS_PARAM(supported),
                             onSupportsFile, 0),
    SD_BUS_METHOD_WITH_NAMES("IsPlainFile", "ay", SD_BUS_PARAM(path), "b", SD_BUS_PARAM(plain),
                             onIsPlainFile, 0),
    SD_BUS_VTABLE_END,
};

}  // namespace ulvek
