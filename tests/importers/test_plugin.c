/* Importer plug-ins that misbehave on purpose, one factory each, for the host's tests. Written
   in C against the SDK header alone, as a third party would. */
#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <ulvekbot/importer.h>
#include <unistd.h>

extern char** environ;

typedef struct {
  UlvekImporterInterfaceStruct* vtable;
  uint32_t references;
  int behaviour;
} Instance;

enum {
  GOOD,
  CRASH,
  HANG,
  PRINT,
  URL_ONLY,
  NO_INTERFACE,
  GARBAGE,
  TIMED,
  REFUSE,
  HOSTILE,
  FORK,
  CHATTY
};

/* errno of each thing a hostile plug-in tries, 0 where it was let through. */
static int tcp_errno(void) {
  int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  struct sockaddr_in address = {.sin_family = AF_INET, .sin_port = htons(9)};
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int result = connect(fd, (struct sockaddr*)&address, sizeof address) == 0 ? 0 : errno;
  close(fd);
  /* Nothing listens on the discard port: a refused connection means the network was there. */
  return result == ECONNREFUSED ? 0 : result;
}

static int local_connect_errno(void) {
  int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  strcpy(address.sun_path, "/run/dbus/system_bus_socket");
  int result = connect(fd, (struct sockaddr*)&address, sizeof address) == 0 ? 0 : errno;
  close(fd);
  return result == ENOENT || result == ECONNREFUSED ? 0 : result;
}

static int write_errno(const char* path) {
  int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  close(fd);
  unlink(path);
  return 0;
}

static int run_errno(void) {
  char* arguments[] = {"/bin/sh", "-c", "exit 0", NULL};
  pid_t pid;
  int failed = posix_spawn(&pid, "/bin/sh", NULL, NULL, arguments, environ);
  if (failed) return failed;
  waitpid(pid, NULL, 0);
  return 0;
}

static void try_everything(UlvekAttributes* attributes) {
  char path[64];
  snprintf(path, sizeof path, "/var/tmp/ulvek-hostile-%d", (int)getpid());
  char temporary[4096];
  const char* tmpdir = getenv("TMPDIR");
  snprintf(temporary, sizeof temporary, "%s/hostile", tmpdir ? tmpdir : "/nonexistent");
  ulvek_attributes_set_integer(attributes, "TcpErrno", tcp_errno());
  ulvek_attributes_set_integer(attributes, "LocalConnectErrno", local_connect_errno());
  ulvek_attributes_set_integer(attributes, "VarTmpErrno", write_errno(path));
  ulvek_attributes_set_integer(attributes, "TemporaryErrno", write_errno(temporary));
  ulvek_attributes_set_integer(attributes, "ShellErrno", run_errno());
}

/* Leaves a child behind that tries to leave the process group; answers its pid and the errno of
   its setsid(). */
static void leave_descendant(UlvekAttributes* attributes) {
  int report[2];
  if (pipe(report) != 0) return;
  pid_t child = fork();
  if (child == 0) {
    int result = setsid() < 0 ? errno : 0;
    (void)!write(report[1], &result, sizeof result);
    for (;;) pause();
  }
  int result = -1;
  (void)!read(report[0], &result, sizeof result);
  close(report[0]);
  close(report[1]);
  ulvek_attributes_set_integer(attributes, "Descendant", child);
  ulvek_attributes_set_integer(attributes, "SetsidErrno", result);
}

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
    case HOSTILE:
      try_everything(attributes);
      break;
    case FORK:
      leave_descendant(attributes);
      break;
    case CHATTY:
      for (int line = 0; line < 25; ++line)
        fprintf(line % 2 ? stderr : stdout, "chatter %d\n", line);
      fflush(stdout);
      break;
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
FACTORY(HostileFactory, HOSTILE)
FACTORY(ForkFactory, FORK)
FACTORY(ChattyFactory, CHATTY)
__attribute__((visibility("default"))) void* NullFactory(void* allocator, UlvekUUID type) {
  return NULL;
}
