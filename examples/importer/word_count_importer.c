/* An importer plug-in for ".wordcount" files: a 5-byte header "WCNT" and NUL, then UTF-8 text.
   It reports the text and the number of words. (Files that are plain text never reach an
   importer: ulvekbot reads them itself.) Build, install and try it as docs/importers.md says. */
#include <ctype.h>
#include <stdio.h>
#include <stdlib.h>
#include <ulvekbot/importer.h>

typedef struct {
  UlvekImporterInterfaceStruct* interface;
  uint32_t references;
} Importer;

static int32_t query_interface(void* self, UlvekUUID iid, void** out);
static uint32_t add_ref(void* self) { return ++((Importer*)self)->references; }
static uint32_t release(void* self) {
  Importer* importer = self;
  uint32_t left = --importer->references;
  if (left == 0) free(importer);
  return left;
}

static bool import_data(void* self, UlvekAttributes* attributes, const char* content_type,
                        const char* path) {
  FILE* file = fopen(path, "rb");
  if (!file) return false;
  char* text = malloc(1 << 20);
  size_t length = text ? fread(text, 1, (1 << 20) - 1, file) : 0;
  fclose(file);
  if (!text) return false;
  text[length] = '\0';
  if (length < 5 || text[0] != 'W' || text[1] != 'C' || text[2] != 'N' || text[3] != 'T') {
    free(text);
    return false;
  }
  char* body = text + 5;
  length -= 5;
  int64_t words = 0;
  for (size_t i = 0; i < length; ++i)
    if (!isspace((unsigned char)body[i]) && (i == 0 || isspace((unsigned char)body[i - 1]))) ++words;
  ulvek_attributes_set_string(attributes, "kMDItemTextContent", body);
  ulvek_attributes_set_integer(attributes, "com_example_wordCount", words);
  const char* authors[] = {"Word Count Example"};
  ulvek_attributes_set_string_list(attributes, "kMDItemAuthors", authors, 1);
  free(text);
  return true;
}

static UlvekImporterInterfaceStruct table = {NULL, query_interface, add_ref, release, import_data};

static int32_t query_interface(void* self, UlvekUUID iid, void** out) {
  *out = NULL;
  if (!ulvek_uuid_equal(iid, ULVEK_IMPORTER_INTERFACE_ID)) return 1;
  add_ref(self);
  *out = self;
  return 0;
}

/* The factory Info.plist names under CFPlugInFactories. */
__attribute__((visibility("default"))) void* WordCountImporterFactory(void* allocator,
                                                                       UlvekUUID type) {
  if (!ulvek_uuid_equal(type, ULVEK_IMPORTER_TYPE_ID)) return NULL;
  Importer* importer = malloc(sizeof *importer);
  if (!importer) return NULL;
  importer->interface = &table;
  importer->references = 1;
  return importer;
}
