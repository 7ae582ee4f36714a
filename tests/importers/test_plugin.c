/* Importer plug-ins that misbehave on purpose, one factory each, for the host's tests. Written
   in C against the SDK header alone, as a third party would. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <ulvekbot/importer.h>
#include <unistd.h>

typedef struct {
  UlvekImporterInterfaceStruct* vtable;
  uint32_t references;
  int behaviour;
} Instance;

enum { GOOD, CRASH, HANG, PRINT, URL_ONLY, NO_INTERFACE, GARBAGE, TIMED, REFUSE };

static int32_t query(void* self, UlvekUUID iid, void** out);
static uint32_t add_ref(void* self) { return ++((Instance*)self)->references; }
static uint32_t release(void* self) {
  Instance* instance = self;
  uint32_t left = --instance->references;
  if (left == 0) free(instance);
  return left;
}

static bool import_data(void* self, UlvekAttributes* attributes, const char* content_type,
                        const char* path) {
  Instance* instance = self;
  switch (instance->behaviour) {
    case CRASH:
      raise(SIGSEGV);
      break;
    case HANG:
      for (;;) pause();
    case PRINT:
      printf("plug-ins should not print, but some do\n");
      fflush(stdout);
      break;
    case TIMED:
      /* Tells the host how long it said it would wait. */
      ulvek_attributes_set_number(attributes, "SecondsLeft",
                                  ulvek_attributes_seconds_left(attributes));
      return true;
    case REFUSE:
      /* Cannot read the file, and says so. */
      return false;
    case GARBAGE: {
      /* Writes past its answer into the host's pipe. */
      static const char junk[] = "\x10\x00\x00\x00not a property list";
      for (int fd = 3; fd < 64; ++fd) (void)!write(fd, junk, sizeof junk);
      break;
    }
  }
  ulvek_attributes_set_string(attributes, "kMDItemTitle", "Test title");
  const char* authors[] = {"Ann", "Bo"};
  ulvek_attributes_set_string_list(attributes, "kMDItemAuthors", authors, 2);
  ulvek_attributes_set_string(attributes, "kMDItemTextContent", path);
  ulvek_attributes_set_string(attributes, "kMDItemDescription", content_type);
  ulvek_attributes_set_date(attributes, "kMDItemContentCreationDate", 86400.0);
  return true;
}

static bool import_url(void* self, UlvekAttributes* attributes, const char* content_type,
                       const char* url) {
  ulvek_attributes_set_string(attributes, "kMDItemTextContent", url);
  return true;
}

static UlvekImporterInterfaceStruct path_table = {NULL, query, add_ref, release, import_data};
static UlvekImporterURLInterfaceStruct url_table = {NULL, query, add_ref, release, import_url};

static int32_t query(void* self, UlvekUUID iid, void** out) {
  Instance* instance = self;
  *out = NULL;
  if (instance->behaviour == NO_INTERFACE) return 1;
  bool url_only = instance->behaviour == URL_ONLY;
  if (!url_only && ulvek_uuid_equal(iid, ULVEK_IMPORTER_INTERFACE_ID)) {
    Instance* copy = malloc(sizeof *copy);
    *copy = (Instance){&path_table, 1, instance->behaviour};
    *out = copy;
    return 0;
  }
  if (url_only && ulvek_uuid_equal(iid, ULVEK_IMPORTER_URL_INTERFACE_ID)) {
    Instance* copy = malloc(sizeof *copy);
    *copy = (Instance){(UlvekImporterInterfaceStruct*)&url_table, 1, instance->behaviour};
    *out = copy;
    return 0;
  }
  return 1;
}

static void* create(UlvekUUID type, int behaviour) {
  if (!ulvek_uuid_equal(type, ULVEK_IMPORTER_TYPE_ID)) return NULL;
  Instance* instance = malloc(sizeof *instance);
  *instance = (Instance){&path_table, 1, behaviour};
  return instance;
}

#define FACTORY(name, behaviour)                                                       \
  __attribute__((visibility("default"))) void* name(void* allocator, UlvekUUID type) { \
    return create(type, behaviour);                                                    \
  }
FACTORY(GoodFactory, GOOD)
FACTORY(CrashFactory, CRASH)
FACTORY(HangFactory, HANG)
FACTORY(PrintFactory, PRINT)
FACTORY(UrlFactory, URL_ONLY)
FACTORY(NoInterfaceFactory, NO_INTERFACE)
FACTORY(GarbageFactory, GARBAGE)
FACTORY(TimedFactory, TIMED)
FACTORY(RefuseFactory, REFUSE)
__attribute__((visibility("default"))) void* NullFactory(void* allocator, UlvekUUID type) {
  return NULL;
}
