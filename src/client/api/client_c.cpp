// The C client over the C++ one. No exception crosses into C: each entry point answers a status.
#include <ulvekbot/client.h>
#include <ulvekbot/client_c.h>

#include <exception>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

struct ulvekbot_client {
  explicit ulvekbot_client(ulvekbot::ClientOptions chosen) : options(chosen), client(chosen) {}
  ulvekbot::ClientOptions options;
  ulvekbot::Client client;
  std::string message;
  std::string domain;
};

struct ulvekbot_result {
  explicit ulvekbot_result(ulvekbot::ImportResult imported) : result(std::move(imported)) {
    for (const auto& entry : result.values()) keys.push_back(entry.first.c_str());
  }
  ulvekbot::ImportResult result;
  std::vector<const char*> keys;
};

namespace {

ulvekbot_status statusOf(ulvekbot::ErrorCode code) {
  switch (code) {
    case ulvekbot::ErrorCode::InvalidArgument:
      return ULVEKBOT_ERROR_INVALID_ARGUMENT;
    case ulvekbot::ErrorCode::Unreachable:
      return ULVEKBOT_ERROR_UNREACHABLE;
    case ulvekbot::ErrorCode::Timeout:
      return ULVEKBOT_ERROR_TIMEOUT;
    case ulvekbot::ErrorCode::HelperGone:
      return ULVEKBOT_ERROR_HELPER_GONE;
    case ulvekbot::ErrorCode::Failed:
      break;
  }
  return ULVEKBOT_ERROR_FAILED;
}

ulvekbot_status fail(ulvekbot_client* client, ulvekbot_status status, std::string message,
                     std::string domain = {}) {
  client->message = std::move(message);
  client->domain = std::move(domain);
  return status;
}

// Runs one call: clears the last error, keeps a failure's message, turns exceptions into a
// status.
template <typename Call>
ulvekbot_status guarded(ulvekbot_client* client, Call call) {
  if (!client) return ULVEKBOT_ERROR_INVALID_ARGUMENT;
  client->message.clear();
  client->domain.clear();
  try {
    return call();
  } catch (const std::bad_alloc&) {
    return fail(client, ULVEKBOT_ERROR_INTERNAL, "out of memory");
  } catch (const std::exception& exception) {
    return fail(client, ULVEKBOT_ERROR_INTERNAL, exception.what());
  } catch (...) {
    return fail(client, ULVEKBOT_ERROR_INTERNAL, "unknown failure");
  }
}

template <typename T>
ulvekbot_status failed(ulvekbot_client* client, const ulvekbot::Expected<T>& outcome) {
  const ulvekbot::Error& error = outcome.error();
  return fail(client, statusOf(error.code), error.message, error.domain);
}

using Import = ulvekbot::Expected<ulvekbot::ImportResult> (ulvekbot::Client::*)(std::string_view);

ulvekbot_status importPath(ulvekbot_client* client, Import operation, const char* path,
                           ulvekbot_result** result) {
  if (result) *result = nullptr;
  return guarded(client, [&] {
    if (!path || !result) return fail(client, ULVEKBOT_ERROR_INVALID_ARGUMENT, "no path or result");
    auto imported = (client->client.*operation)(path);
    if (!imported) return failed(client, imported);
    *result = new ulvekbot_result(std::move(imported).value());
    return ULVEKBOT_OK;
  });
}

using Question = ulvekbot::Expected<bool> (ulvekbot::Client::*)(std::string_view);

ulvekbot_status ask(ulvekbot_client* client, Question question, const char* path, int* answer) {
  return guarded(client, [&] {
    if (!path || !answer) return fail(client, ULVEKBOT_ERROR_INVALID_ARGUMENT, "no path or answer");
    auto answered = (client->client.*question)(path);
    if (!answered) return failed(client, answered);
    *answer = *answered ? 1 : 0;
    return ULVEKBOT_OK;
  });
}

// ulvekbot_result_kind counts on the variant's order.
static_assert(std::is_same_v<std::variant_alternative_t<ULVEKBOT_VALUE_STRING - 1, ulvekbot::Value>,
                             std::string>);
static_assert(std::is_same_v<std::variant_alternative_t<ULVEKBOT_VALUE_DATE - 1, ulvekbot::Value>,
                             ulvekbot::Date>);
static_assert(
    std::is_same_v<std::variant_alternative_t<ULVEKBOT_VALUE_STRING_LIST - 1, ulvekbot::Value>,
                   ulvekbot::StringList>);

template <typename T>
const T* valueOf(const ulvekbot_result* result, const char* key) {
  return result && key ? result->result.get<T>(key) : nullptr;
}

}  // namespace

extern "C" {

const char* ulvekbot_status_name(ulvekbot_status status) {
  switch (status) {
    case ULVEKBOT_OK:
      return "ok";
    case ULVEKBOT_ERROR_INVALID_ARGUMENT:
      return "invalid argument";
    case ULVEKBOT_ERROR_UNREACHABLE:
      return "unreachable";
    case ULVEKBOT_ERROR_TIMEOUT:
      return "timed out";
    case ULVEKBOT_ERROR_HELPER_GONE:
      return "helper gone";
    case ULVEKBOT_ERROR_FAILED:
      return "failed";
    case ULVEKBOT_ERROR_INTERNAL:
      return "internal error";
  }
  return "unknown status";
}

ulvekbot_client* ulvekbot_client_new(const char* helper_path) {
  try {
    ulvekbot::ClientOptions options;
    if (helper_path) options.helperPath = helper_path;
    return new ulvekbot_client(std::move(options));
  } catch (...) {
    return nullptr;
  }
}

void ulvekbot_client_free(ulvekbot_client* client) { delete client; }

ulvekbot_status ulvekbot_client_set_timeout(ulvekbot_client* client, double seconds) {
  return guarded(client, [&] {
    if (!(seconds > 0))
      return fail(client, ULVEKBOT_ERROR_INVALID_ARGUMENT, "timeout must be positive");
    // A client's options are fixed: a fresh one takes the new timeout (and stops a daemon the
    // old one started).
    client->options.timeout = std::chrono::duration<double>(seconds);
    client->client = ulvekbot::Client(client->options);
    return ULVEKBOT_OK;
  });
}

const char* ulvekbot_client_error_message(const ulvekbot_client* client) {
  return client ? client->message.c_str() : "";
}

const char* ulvekbot_client_error_domain(const ulvekbot_client* client) {
  return client ? client->domain.c_str() : "";
}

ulvekbot_status ulvekbot_client_ping(ulvekbot_client* client) {
  return guarded(client, [&] {
    auto pinged = client->client.ping();
    return pinged ? ULVEKBOT_OK : failed(client, pinged);
  });
}

ulvekbot_status ulvekbot_client_import_file(ulvekbot_client* client, const char* path,
                                            ulvekbot_result** result) {
  return importPath(client, &ulvekbot::Client::importFile, path, result);
}

ulvekbot_status ulvekbot_client_import_directory(ulvekbot_client* client, const char* path,
                                                 ulvekbot_result** result) {
  return importPath(client, &ulvekbot::Client::importDirectory, path, result);
}

ulvekbot_status ulvekbot_client_import_attributes(ulvekbot_client* client, const char* path,
                                                  ulvekbot_result** result) {
  return importPath(client, &ulvekbot::Client::importAttributes, path, result);
}

ulvekbot_status ulvekbot_client_import_data(ulvekbot_client* client, const void* data, size_t size,
                                            const char* url, const char* mime_type,
                                            ulvekbot_result** result) {
  if (result) *result = nullptr;
  return guarded(client, [&] {
    if (!result || (!data && size > 0))
      return fail(client, ULVEKBOT_ERROR_INVALID_ARGUMENT, "no data or result");
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    auto imported = client->client.importData(ulvekbot::Bytes(bytes, bytes + size), url ? url : "",
                                              mime_type ? mime_type : "");
    if (!imported) return failed(client, imported);
    *result = new ulvekbot_result(std::move(imported).value());
    return ULVEKBOT_OK;
  });
}

ulvekbot_status ulvekbot_client_supports_file(ulvekbot_client* client, const char* path,
                                              int* answer) {
  return ask(client, &ulvekbot::Client::supportsFile, path, answer);
}

ulvekbot_status ulvekbot_client_is_plain_file(ulvekbot_client* client, const char* path,
                                              int* answer) {
  return ask(client, &ulvekbot::Client::isPlainFile, path, answer);
}

ulvekbot_status ulvekbot_client_terminate(ulvekbot_client* client) {
  return guarded(client, [&] {
    auto terminated = client->client.terminate();
    return terminated ? ULVEKBOT_OK : failed(client, terminated);
  });
}

void ulvekbot_result_free(ulvekbot_result* result) { delete result; }

size_t ulvekbot_result_count(const ulvekbot_result* result) {
  return result ? result->keys.size() : 0;
}

const char* ulvekbot_result_key(const ulvekbot_result* result, size_t index) {
  return result && index < result->keys.size() ? result->keys[index] : nullptr;
}

ulvekbot_value_kind ulvekbot_result_kind(const ulvekbot_result* result, const char* key) {
  const ulvekbot::Value* value = result && key ? result->result.get(key) : nullptr;
  if (!value) return ULVEKBOT_VALUE_NONE;
  // The variant's alternatives in the order of the enum.
  return static_cast<ulvekbot_value_kind>(value->index() + 1);
}

const char* ulvekbot_result_string(const ulvekbot_result* result, const char* key) {
  const std::string* text = valueOf<std::string>(result, key);
  return text ? text->c_str() : nullptr;
}

int ulvekbot_result_integer(const ulvekbot_result* result, const char* key, int64_t* value) {
  const std::int64_t* number = valueOf<std::int64_t>(result, key);
  if (!number || !value) return 0;
  *value = *number;
  return 1;
}

int ulvekbot_result_real(const ulvekbot_result* result, const char* key, double* value) {
  const double* number = valueOf<double>(result, key);
  if (!number || !value) return 0;
  *value = *number;
  return 1;
}

int ulvekbot_result_boolean(const ulvekbot_result* result, const char* key, int* value) {
  const bool* flag = valueOf<bool>(result, key);
  if (!flag || !value) return 0;
  *value = *flag ? 1 : 0;
  return 1;
}

int ulvekbot_result_date(const ulvekbot_result* result, const char* key, int64_t* microseconds) {
  const ulvekbot::Date* date = valueOf<ulvekbot::Date>(result, key);
  if (!date || !microseconds) return 0;
  *microseconds =
      std::chrono::duration_cast<std::chrono::microseconds>(date->time_since_epoch()).count();
  return 1;
}

const uint8_t* ulvekbot_result_bytes(const ulvekbot_result* result, const char* key, size_t* size) {
  const ulvekbot::Bytes* bytes = valueOf<ulvekbot::Bytes>(result, key);
  if (size) *size = bytes ? bytes->size() : 0;
  if (!bytes) return nullptr;
  // Empty data still answers a pointer, so "present but empty" differs from "absent".
  static const uint8_t kNothing = 0;
  return bytes->empty() ? &kNothing : bytes->data();
}

size_t ulvekbot_result_list_count(const ulvekbot_result* result, const char* key) {
  const ulvekbot::StringList* list = valueOf<ulvekbot::StringList>(result, key);
  return list ? list->size() : 0;
}

const char* ulvekbot_result_list_item(const ulvekbot_result* result, const char* key,
                                      size_t index) {
  const ulvekbot::StringList* list = valueOf<ulvekbot::StringList>(result, key);
  return list && index < list->size() ? (*list)[index].c_str() : nullptr;
}

}  // extern "C"
