/*
 * ulvekbot importer SDK: the C interface between ulvekbot and an importer plug-in.
 *
 * An importer is a bundle folder NAME.mdimporter holding Contents/Info.plist and the shared
 * object Contents/Linux/<CFBundleExecutable>. Info.plist maps factory UUID strings to exported
 * factory functions (CFPlugInFactories), the importer type to its factories (CFPlugInTypes), and
 * lists the content types (CFBundleDocumentTypes with CFBundleTypeRole "MDImporter") and file
 * extensions (UTExportedTypeDeclarations) it reads. See docs/importers.md.
 *
 * A plug-in includes only this header and links against nothing of ulvekbot's.
 */
#ifndef ULVEKBOT_IMPORTER_H
#define ULVEKBOT_IMPORTER_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A UUID as 16 bytes, most significant first. */
typedef struct UlvekUUID {
  uint8_t bytes[16];
} UlvekUUID;

#define ULVEK_UUID_INIT(a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p) \
  {                                                                     \
    { a, b, c, d, e, f, g, h, i, j, k, l, m, n, o, p }                  \
  }

/* 8B08C4BF-415B-11D8-B3F9-0003936726FC: the importer plug-in type. */
static const UlvekUUID ULVEK_IMPORTER_TYPE_ID = ULVEK_UUID_INIT(
    0x8B, 0x08, 0xC4, 0xBF, 0x41, 0x5B, 0x11, 0xD8, 0xB3, 0xF9, 0x00, 0x03, 0x93, 0x67, 0x26, 0xFC);
/* 6EBC27C4-899C-11D8-84AE-0003936726FC: the interface that imports by path. */
static const UlvekUUID ULVEK_IMPORTER_INTERFACE_ID = ULVEK_UUID_INIT(
    0x6E, 0xBC, 0x27, 0xC4, 0x89, 0x9C, 0x11, 0xD8, 0x84, 0xAE, 0x00, 0x03, 0x93, 0x67, 0x26, 0xFC);
/* 13F60F02-3622-4F35-9891-EC10E6CD08F8: the interface that imports by file:// URL. */
static const UlvekUUID ULVEK_IMPORTER_URL_INTERFACE_ID = ULVEK_UUID_INIT(
    0x13, 0xF6, 0x0F, 0x02, 0x36, 0x22, 0x4F, 0x35, 0x98, 0x91, 0xEC, 0x10, 0xE6, 0xCD, 0x08, 0xF8);

static inline bool ulvek_uuid_equal(UlvekUUID a, UlvekUUID b) {
  return memcmp(a.bytes, b.bytes, sizeof a.bytes) == 0;
}

/*
 * The attributes being filled: Spotlight attribute names ("kMDItemTitle", "kMDItemAuthors",
 * "kMDItemTextContent", ...) to values. The host places a function table at the start of the
 * handle; the setters below call through it. Keys and strings are UTF-8; a later value for a
 * key replaces an earlier one.
 */
typedef struct UlvekAttributesFunctions {
  uint32_t version; /* 3; version 1 hosts have no seconds_left, version 2 no setting */
  void (*set_string)(void* attributes, const char* key, const char* utf8);
  void (*set_string_list)(void* attributes, const char* key, const char* const* items,
                          size_t count);
  void (*set_number)(void* attributes, const char* key, double value);
  void (*set_integer)(void* attributes, const char* key, int64_t value);
  void (*set_bool)(void* attributes, const char* key, bool value);
  void (*set_date)(void* attributes, const char* key, double seconds_since_1970);
  void (*set_data)(void* attributes, const char* key, const void* bytes, size_t length);
  /* Version 2: seconds left before the host stops waiting for this import; negative when it
     sets no limit. An importer that reads in parts answers what it read before then. */
  double (*seconds_left)(void* attributes);
  /* Version 3: the host's setting `key` for this import ("OCRLanguages", ...) as UTF-8, or NULL
     when it gives none. The string lives as long as the import. */
  const char* (*setting)(void* attributes, const char* key);
} UlvekAttributesFunctions;

typedef struct UlvekAttributes {
  const UlvekAttributesFunctions* functions;
} UlvekAttributes;

static inline void ulvek_attributes_set_string(UlvekAttributes* a, const char* key,
                                               const char* utf8) {
  a->functions->set_string(a, key, utf8);
}
static inline void ulvek_attributes_set_string_list(UlvekAttributes* a, const char* key,
                                                    const char* const* items, size_t count) {
  a->functions->set_string_list(a, key, items, count);
}
static inline void ulvek_attributes_set_number(UlvekAttributes* a, const char* key, double value) {
  a->functions->set_number(a, key, value);
}
static inline void ulvek_attributes_set_integer(UlvekAttributes* a, const char* key,
                                                int64_t value) {
  a->functions->set_integer(a, key, value);
}
static inline void ulvek_attributes_set_bool(UlvekAttributes* a, const char* key, bool value) {
  a->functions->set_bool(a, key, value);
}
static inline void ulvek_attributes_set_date(UlvekAttributes* a, const char* key,
                                             double seconds_since_1970) {
  a->functions->set_date(a, key, seconds_since_1970);
}
static inline void ulvek_attributes_set_data(UlvekAttributes* a, const char* key, const void* bytes,
                                             size_t length) {
  a->functions->set_data(a, key, bytes, length);
}
/* Negative when the host sets no limit or is older than version 2. */
static inline double ulvek_attributes_seconds_left(UlvekAttributes* a) {
  if (a->functions->version < 2 || !a->functions->seconds_left) return -1;
  return a->functions->seconds_left(a);
}

/* NULL when the host gives no such setting or is older than version 3. */
static inline const char* ulvek_attributes_setting(UlvekAttributes* a, const char* key) {
  if (a->functions->version < 3 || !a->functions->setting) return NULL;
  return a->functions->setting(a, key);
}

/*
 * The importer interfaces, COM style: an instance is a pointer to a pointer to one of these
 * structs. QueryInterface answers 0 and an instance in *out (with a reference added) for an
 * interface it has, nonzero otherwise. The Boolean an import answers is not used.
 */
typedef struct UlvekImporterInterfaceStruct {
  void* _reserved;
  int32_t (*QueryInterface)(void* self, UlvekUUID iid, void** out);
  uint32_t (*AddRef)(void* self);
  uint32_t (*Release)(void* self);
  bool (*ImporterImportData)(void* self, UlvekAttributes* attributes, const char* contentType,
                             const char* path);
} UlvekImporterInterfaceStruct;

typedef struct UlvekImporterURLInterfaceStruct {
  void* _reserved;
  int32_t (*QueryInterface)(void* self, UlvekUUID iid, void** out);
  uint32_t (*AddRef)(void* self);
  uint32_t (*Release)(void* self);
  bool (*ImporterImportURLData)(void* self, UlvekAttributes* attributes, const char* contentType,
                                const char* fileURL);
} UlvekImporterURLInterfaceStruct;

/*
 * A factory, exported under the name Info.plist gives it: answers a new instance (with one
 * reference) when typeID is ULVEK_IMPORTER_TYPE_ID, else NULL. `allocator` is always NULL.
 */
typedef void* (*UlvekImporterFactory)(void* allocator, UlvekUUID typeID);

#ifdef __cplusplus
}
#endif

#endif /* ULVEKBOT_IMPORTER_H */
