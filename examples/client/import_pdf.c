/* Imports one document (a PDF, say) through the ulvekbotd64 service and prints its title and the
 * length of its text, in bytes of UTF-8.
 *
 *   import-pdf [--helper PATH] FILE
 *
 * Builds with a C compiler alone:
 *   cc import_pdf.c $(pkg-config --cflags --libs ulvekbot-client) -o import-pdf */
#include <ulvekbot/client_c.h>

#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char** argv) {
  const char* helper = getenv("ULVEKBOT_HELPER");
  if (argc == 4 && strcmp(argv[1], "--helper") == 0) {
    helper = argv[2];
    argv += 2;
    argc -= 2;
  }
  if (argc != 2) {
    fprintf(stderr, "usage: import-pdf [--helper PATH] FILE\n");
    return 2;
  }
  /* The daemon runs elsewhere: it needs an absolute path. */
  char path[PATH_MAX];
  if (!realpath(argv[1], path)) {
    perror(argv[1]);
    return 1;
  }

  ulvekbot_client* client = ulvekbot_client_new(helper);
  if (!client) return 1;
  ulvekbot_result* result = NULL;
  ulvekbot_status status = ulvekbot_client_import_file(client, path, &result);
  if (status != ULVEKBOT_OK) {
    fprintf(stderr, "%s: %s: %s\n", argv[1], ulvekbot_status_name(status),
            ulvekbot_client_error_message(client));
    ulvekbot_client_free(client);
    return 1;
  }
  const char* title = ulvekbot_result_string(result, "Title");
  const char* text = ulvekbot_result_string(result, "Text");
  printf("Title: %s\n", title ? title : "(none)");
  printf("Text: %zu bytes\n", text ? strlen(text) : (size_t)0);
  ulvekbot_result_free(result);
  ulvekbot_client_free(client);
  return 0;
}
