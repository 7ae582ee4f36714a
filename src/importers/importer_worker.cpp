#include "importers/importer_worker.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <ulvekbot/importer.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "base/file_url.h"
#include "base/text_string.h"
#include "importers/worker_protocol.h"
#include "platform/sandbox.h"

namespace ulvek {
namespace {

using namespace worker;

// The attributes a plug-in fills, as the host's setters write them into a dictionary. The
// function table comes first, as the SDK header promises.
struct CollectedAttributes {
  UlvekAttributes header;
  PropertyDictionary values;
  std::optional<std::chrono::steady_clock::time_point> deadline;
  std::map<std::string, std::string, std::less<>> settings;
};

PropertyDictionary& values(void* attributes) {
  return static_cast<CollectedAttributes*>(attributes)->values;
}

bool usable(const char* key) { return key && *key; }

const UlvekAttributesFunctions kFunctions = {
    3,
    [](void* a, const char* key, const char* utf8) {
      if (usable(key) && utf8) values(a)[key] = PropertyValue(fromUtf8(utf8));
    },
    [](void* a, const char* key, const char* const* items, size_t count) {
      if (!usable(key) || (!items && count)) return;
      PropertyArray list;
      for (size_t i = 0; i < count; ++i)
        if (items[i]) list.emplace_back(fromUtf8(items[i]));
      values(a)[key] = PropertyValue(std::move(list));
    },
    [](void* a, const char* key, double value) {
      if (usable(key)) values(a)[key] = PropertyValue(value);
    },
    [](void* a, const char* key, std::int64_t value) {
      if (usable(key)) values(a)[key] = PropertyValue(value);
    },
    [](void* a, const char* key, bool value) {
      if (usable(key)) values(a)[key] = PropertyValue(value);
    },
    [](void* a, const char* key, double seconds) {
      if (usable(key) && seconds > -1e13 && seconds < 1e13)
        values(a)[key] = PropertyValue(Date{static_cast<std::int64_t>(seconds * 1e6)});
    },
    [](void* a, const char* key, const void* bytes, size_t length) {
      if (!usable(key) || (!bytes && length)) return;
      auto* start = static_cast<const std::uint8_t*>(bytes);
      values(a)[key] = PropertyValue(Data(start, start + length));
    },
    [](void* a) -> double {
      const auto& deadline = static_cast<CollectedAttributes*>(a)->deadline;
      if (!deadline) return -1;
      std::chrono::duration<double> left = *deadline - std::chrono::steady_clock::now();
      return std::max(0.0, left.count());
    },
    [](void* a, const char* key) -> const char* {
      if (!usable(key)) return nullptr;
      const auto& settings = static_cast<CollectedAttributes*>(a)->settings;
      auto found = settings.find(std::string_view(key));
      return found == settings.end() ? nullptr : found->second.c_str();
    },
};

// An ELF shared object for this machine: what the loader of this process can take.
bool isLoadableElf(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return false;
  Elf64_Ehdr header{};
  ssize_t got = ::read(fd, &header, sizeof header);
  ::close(fd);
  if (got != sizeof header || std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return false;
  if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_type != ET_DYN) return false;
#if defined(__x86_64__)
  return header.e_machine == EM_X86_64;
#elif defined(__aarch64__)
  return header.e_machine == EM_AARCH64;
#else
  return true;
#endif
}

class Worker {
 public:
  PropertyDictionary handle(const PropertyDictionary& request) {
    std::optional<TextString> operation = stringField(request, Field::Operation);
    if (operation == Operation::Ping) return answer(u"pong");
    std::string executable = toUtf8(stringField(request, Field::Executable).value_or(u""));
    void* library = load(executable);
    if (operation == Operation::Preflight)
      return answer(library ? Outcome::Loadable : Outcome::NotLoaded, message_);
    if (!library) return answer(Outcome::NotLoaded, message_);
    return call(request, library);
  }

 private:
  static PropertyDictionary answer(std::u16string_view outcome, const std::string& message = {}) {
    PropertyDictionary reply{{std::string(Field::Outcome), PropertyValue(outcome)}};
    if (!message.empty()) reply[std::string(Field::Message)] = PropertyValue(fromUtf8(message));
    return reply;
  }

  void* load(const std::string& executable) {
    message_.clear();
    if (auto found = libraries_.find(executable); found != libraries_.end()) return found->second;
    if (!isLoadableElf(executable)) {
      message_ = "not a shared object for this machine";
      return nullptr;
    }
    void* library = ::dlopen(executable.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) {
      const char* why = ::dlerror();
      message_ = why ? why : "dlopen failed";
      return nullptr;
    }
    libraries_[executable] = library;
    return library;
  }

  PropertyDictionary call(const PropertyDictionary& request, void* library) {
    std::string factoryName = toUtf8(stringField(request, Field::Factory).value_or(u""));
    auto factory = reinterpret_cast<UlvekImporterFactory>(::dlsym(library, factoryName.c_str()));
    if (!factory) return answer(Outcome::NotLoaded, "no function " + factoryName);
    void* instance = factory(nullptr, ULVEK_IMPORTER_TYPE_ID);
    if (!instance) return answer(Outcome::NoInstance);
    auto* unknown = *static_cast<UlvekImporterInterfaceStruct**>(instance);
    void* interface = nullptr;
    bool byPath = unknown->QueryInterface(instance, ULVEK_IMPORTER_INTERFACE_ID, &interface) == 0 &&
                  interface;
    if (!byPath) {
      interface = nullptr;
      if (unknown->QueryInterface(instance, ULVEK_IMPORTER_URL_INTERFACE_ID, &interface) != 0)
        interface = nullptr;
    }
    unknown->Release(instance);
    if (!interface) return answer(Outcome::NoInterface);

    PropertyDictionary reply = answer(Outcome::Imported);
    const PropertyValue* import = find(request, Field::Import);
    bool wanted = !import || !import->boolean() || *import->boolean();
    std::string contentType = toUtf8(stringField(request, Field::ContentType).value_or(u""));
    std::string path = toUtf8(stringField(request, Field::Path).value_or(u""));
    CollectedAttributes attributes{{&kFunctions}, {}, {}, {}};
    if (const PropertyValue* settings = find(request, Field::Settings);
        settings && settings->dictionary()) {
      for (const auto& [key, value] : *settings->dictionary())
        if (value.string()) attributes.settings[key] = toUtf8(*value.string());
    }
    if (const PropertyValue* deadline = find(request, Field::Deadline);
        deadline && deadline->real())
      attributes.deadline = std::chrono::steady_clock::time_point(
          std::chrono::duration_cast<std::chrono::steady_clock::duration>(
              std::chrono::duration<double>(*deadline->real())));
    // Only told to the host, which says why a file gave nothing; the answer stands either way.
    bool read = true;
    if (byPath) {
      auto* importer = *static_cast<UlvekImporterInterfaceStruct**>(interface);
      if (wanted)
        read = importer->ImporterImportData(interface, &attributes.header, contentType.c_str(),
                                            path.c_str());
      importer->Release(interface);
    } else {
      auto* importer = *static_cast<UlvekImporterURLInterfaceStruct**>(interface);
      // Relative paths are the host's, whose working folder the worker shares.
      std::error_code error;
      std::filesystem::path absolute = std::filesystem::absolute(path, error);
      std::string url = fileURLWithPath(error ? path : absolute.string());
      if (wanted)
        read = importer->ImporterImportURLData(interface, &attributes.header, contentType.c_str(),
                                               url.c_str());
      importer->Release(interface);
    }
    if (wanted) {
      reply[std::string(Field::Attributes)] = PropertyValue(std::move(attributes.values));
      reply[std::string(Field::Read)] = PropertyValue(read);
    }
    return reply;
  }

  std::map<std::string, void*> libraries_;
  std::string message_;
};

}  // namespace

int runImporterWorker(int in, int out) {
  Worker worker;
  for (;;) {
    Result<PropertyDictionary> request = readMessage(in);
    if (!request) return request.error().code == EPIPE ? 0 : 1;
    // A call may burn no more processor time than the host waits for it.
    if (const PropertyValue* deadline = find(*request, Field::Deadline);
        deadline && deadline->real()) {
      double now =
          std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
              .count();
      sandbox::limitProcessorTimeFor(*deadline->real() - now);
    }
    if (!writeMessage(out, worker.handle(*request))) return 1;
  }
}

}  // namespace ulvek
