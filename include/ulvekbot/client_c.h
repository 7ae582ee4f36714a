#ifndef ULVEKBOT_CLIENT_C_H
#define ULVEKBOT_CLIENT_C_H

/* The ulvekbot client library for C and for languages that bind C (GLib, Python ctypes, Rust,
 * Go): import documents through the ulvekbotd64 service on the D-Bus session bus.
 *
 *   ulvekbot_client *client = ulvekbot_client_new(NULL);
 *   ulvekbot_result *result = NULL;
 *   if (ulvekbot_client_import_file(client, "/home/me/report.pdf", &result) == ULVEKBOT_OK) {
 *     const char *title = ulvekbot_result_string(result, "Title");
 *     ...
 *     ulvekbot_result_free(result);
 *   } else {
 *     fprintf(stderr, "%s\n", ulvekbot_client_error_message(client));
 *   }
 *   ulvekbot_client_free(client);
 *
 * Every string is UTF-8, NUL-terminated. Strings a result hands out belong to it and live as
 * long as it does. A client is used by one thread at a time. Link with
 * `pkg-config --cflags --libs ulvekbot-client`. */

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define ULVEKBOT_C_API __attribute__((visibility("default")))
#else
#define ULVEKBOT_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct ulvekbot_client ulvekbot_client;
typedef struct ulvekbot_result ulvekbot_result;

typedef enum ulvekbot_status {
  ULVEKBOT_OK = 0,
  /* A null or unusable argument. */
  ULVEKBOT_ERROR_INVALID_ARGUMENT = 1,
  /* No session bus, or no daemon could be found, started or reached. */
  ULVEKBOT_ERROR_UNREACHABLE = 2,
  /* The daemon was there but did not answer in time. */
  ULVEKBOT_ERROR_TIMEOUT = 3,
  /* The daemon left the bus during the call. */
  ULVEKBOT_ERROR_HELPER_GONE = 4,
  /* The daemon answered with an error of its own (a missing file, a damaged document, ...). */
  ULVEKBOT_ERROR_FAILED = 5,
  /* Memory ran out, or the library failed in a way it could not name. */
  ULVEKBOT_ERROR_INTERNAL = 6
} ulvekbot_status;

typedef enum ulvekbot_value_kind {
  ULVEKBOT_VALUE_NONE = 0, /* the key is absent */
  ULVEKBOT_VALUE_STRING = 1,
  ULVEKBOT_VALUE_INTEGER = 2,
  ULVEKBOT_VALUE_REAL = 3,
  ULVEKBOT_VALUE_BOOLEAN = 4,
  ULVEKBOT_VALUE_DATE = 5,
  ULVEKBOT_VALUE_BYTES = 6,
  ULVEKBOT_VALUE_STRING_LIST = 7
} ulvekbot_value_kind;

/* A short English name of a status ("ok", "unreachable", ...); never null. */
ULVEKBOT_C_API const char* ulvekbot_status_name(ulvekbot_status status);

/* A client for the daemon at helper_path, started where none runs; NULL for the installed one,
 * which the bus is first asked to start. Null only when memory ran out. */
ULVEKBOT_C_API ulvekbot_client* ulvekbot_client_new(const char* helper_path);
/* Stops the daemon the client started, if any. Null is allowed. */
ULVEKBOT_C_API void ulvekbot_client_free(ulvekbot_client* client);
/* How long one call waits for its answer (15 seconds unless set). Set it before the first call:
 * a client that has reached the daemon starts over (stopping a daemon it started). */
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_set_timeout(ulvekbot_client* client, double seconds);
/* The message of the client's last failed call, "" after a success; owned by the client, valid
 * until its next call. */
ULVEKBOT_C_API const char* ulvekbot_client_error_message(const ulvekbot_client* client);
/* The D-Bus error name or the service's error domain of the last failed call, or "". */
ULVEKBOT_C_API const char* ulvekbot_client_error_domain(const ulvekbot_client* client);

/* The service's operations. Paths are absolute. An import stores a new result in *result, which
 * the caller frees with ulvekbot_result_free; on failure *result is set to null. */
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_ping(ulvekbot_client* client);
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_import_file(ulvekbot_client* client,
                                                           const char* path,
                                                           ulvekbot_result** result);
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_import_directory(ulvekbot_client* client,
                                                                const char* path,
                                                                ulvekbot_result** result);
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_import_attributes(ulvekbot_client* client,
                                                                 const char* path,
                                                                 ulvekbot_result** result);
/* url and mime_type may be null. */
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_import_data(ulvekbot_client* client,
                                                           const void* data, size_t size,
                                                           const char* url, const char* mime_type,
                                                           ulvekbot_result** result);
/* *answer becomes 1 or 0. */
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_supports_file(ulvekbot_client* client,
                                                             const char* path, int* answer);
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_is_plain_file(ulvekbot_client* client,
                                                             const char* path, int* answer);
ULVEKBOT_C_API ulvekbot_status ulvekbot_client_terminate(ulvekbot_client* client);

/* A result: keys in byte order, 0 to count - 1, and typed getters by key. Null is allowed. */
ULVEKBOT_C_API void ulvekbot_result_free(ulvekbot_result* result);
ULVEKBOT_C_API size_t ulvekbot_result_count(const ulvekbot_result* result);
/* Null past the last key. */
ULVEKBOT_C_API const char* ulvekbot_result_key(const ulvekbot_result* result, size_t index);
ULVEKBOT_C_API ulvekbot_value_kind ulvekbot_result_kind(const ulvekbot_result* result,
                                                        const char* key);
/* Null when the key is absent or holds another kind. */
ULVEKBOT_C_API const char* ulvekbot_result_string(const ulvekbot_result* result, const char* key);
/* The getters below answer 1 and store the value, or answer 0 and store nothing. */
ULVEKBOT_C_API int ulvekbot_result_integer(const ulvekbot_result* result, const char* key,
                                           int64_t* value);
ULVEKBOT_C_API int ulvekbot_result_real(const ulvekbot_result* result, const char* key,
                                        double* value);
ULVEKBOT_C_API int ulvekbot_result_boolean(const ulvekbot_result* result, const char* key,
                                           int* value);
/* Microseconds since 1970-01-01 00:00 UTC. */
ULVEKBOT_C_API int ulvekbot_result_date(const ulvekbot_result* result, const char* key,
                                        int64_t* microseconds);
/* The bytes and their count; null (and *size 0) when absent. */
ULVEKBOT_C_API const uint8_t* ulvekbot_result_bytes(const ulvekbot_result* result, const char* key,
                                                    size_t* size);
/* A string list's length (0 when absent or of another kind) and its items. */
ULVEKBOT_C_API size_t ulvekbot_result_list_count(const ulvekbot_result* result, const char* key);
ULVEKBOT_C_API const char* ulvekbot_result_list_item(const ulvekbot_result* result, const char* key,
                                                     size_t index);

#ifdef __cplusplus
}
#endif

#endif /* ULVEKBOT_CLIENT_C_H */
