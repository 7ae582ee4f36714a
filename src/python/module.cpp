// The extension `ulvekbot._ulvekbot`: the library's imports as Python values. The package's
// __init__.py wraps it with the documented functions, the exception and import_tree.

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <pybind11/stl/filesystem.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/error.h"
#include "base/failure.h"
#include "base/processors.h"
#include "import/descriptions.h"
#include "import/item_import.h"
#include "import/mime_type_helper.h"
#include "import/route_table.h"
#include "platform/formats.h"
#include "service/json.h"

namespace py = pybind11;

namespace ulvek::python {
namespace {

// Strings as the JSON lines show them: a lone surrogate becomes U+FFFD.
py::str textOf(TextView text) {
  std::string utf8 = toUtf8(text);
  PyObject* object =
      PyUnicode_DecodeUTF8(utf8.data(), static_cast<Py_ssize_t>(utf8.size()), "replace");
  if (!object) throw py::error_already_set();
  return py::reinterpret_steal<py::str>(object);
}

// Dates as aware datetimes in UTC; microseconds are kept exactly, which a float timestamp
// would not.
py::object dateOf(Date date) {
  // Kept for the life of the process: destroyed at exit, they would outlive the interpreter.
  static const py::object* epoch = [] {
    py::module_ datetime = py::module_::import("datetime");
    return new py::object(datetime.attr("datetime")(
        1970, 1, 1, py::arg("tzinfo") = datetime.attr("timezone").attr("utc")));
  }();
  static const py::object* timedelta =
      new py::object(py::module_::import("datetime").attr("timedelta"));
  try {
    return *epoch + (*timedelta)(py::arg("microseconds") = date.microseconds);
  } catch (const py::error_already_set& error) {
    // Years before 1 and after 9999 have no datetime: they stay the command line's text.
    if (!error.matches(PyExc_OverflowError)) throw;
    return py::str(isoDateString(date));
  }
}

py::object toPython(const PropertyValue& value) {
  switch (value.kind()) {
    case PropertyValue::Kind::String:
      return textOf(*value.string());
    case PropertyValue::Kind::Integer:
      return py::int_(*value.integer());
    case PropertyValue::Kind::Unsigned:
      return py::int_(*value.unsignedInteger());
    case PropertyValue::Kind::Real:
      return py::float_(*value.real());
    case PropertyValue::Kind::Boolean:
      return py::bool_(*value.boolean());
    case PropertyValue::Kind::Date:
      return dateOf(*value.date());
    case PropertyValue::Kind::Data: {
      const Data& data = *value.data();
      return py::bytes(reinterpret_cast<const char*>(data.data()), data.size());
    }
    case PropertyValue::Kind::Array: {
      py::list list;
      for (const PropertyValue& item : *value.array()) list.append(toPython(item));
      return std::move(list);
    }
    case PropertyValue::Kind::Dictionary: {
      py::dict dict;
      for (const auto& [key, item] : *value.dictionary()) dict[py::str(key)] = toPython(item);
      return std::move(dict);
    }
  }
  return py::none();
}

// The result's keys in the order the JSON lines have them, lists as arrays, then `extra`.
// Member by member, so a long text is converted once and never copied first.
py::dict toPython(const ImportResult& result, const PropertyDictionary& extra = {}) {
  py::dict dict;
  forEachJsonMember(result, [&](std::string_view key, const PropertyValue& value) {
    dict[py::str(std::string(key))] = toPython(isJoinedList(key) ? splitList(value) : value);
  });
  for (const auto& [key, value] : extra) dict[py::str(key)] = toPython(value);
  return dict;
}

py::dict failureDict(const Failure& failure) {
  return py::dict(py::arg("kind") = std::string(failureKindName(failure.kind)),
                  py::arg("message") = failure.message);
}

// What the command line says of a path that is not there (or not reachable) before it runs an
// operation on it; nothing when it is there.
std::optional<Failure> missing(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) == 0) return std::nullopt;
  int error = errno;
  FailureKind kind =
      error == EACCES || error == EPERM ? FailureKind::Permission : FailureKind::NotFound;
  return Failure{kind, std::strerror(error)};
}

// Runs an operation on a path without the GIL; answers its result or the failure as the
// command line reports it.
template <typename Operation>
py::tuple onPath(const std::filesystem::path& path, Operation operation) {
  std::string name = path.string();
  std::optional<Failure> failure;
  std::optional<ImportResult> result;
  {
    py::gil_scoped_release unlocked;
    failure = missing(name);
    if (!failure) {
      try {
        MIMETypeHelper helper;
        result = operation(helper, name);
      } catch (const NotSupportedError& exception) {
        failure = Failure{FailureKind::Unsupported,
                          std::string("not supported yet (") + exception.what() + ")"};
      } catch (const std::exception& exception) {
        failure = Failure{FailureKind::Damaged, exception.what()};
      }
    }
  }
  if (failure) return py::make_tuple(py::none(), failureDict(*failure));
  return py::make_tuple(toPython(*result), py::none());
}

// (dict, None) for an item read, (dict with "Error", error dict) for one that failed.
py::tuple importItemOf(const std::filesystem::path& path, double timeLimit, std::optional<bool> ocr,
                       std::size_t cores) {
  ItemAnswer answer;
  {
    py::gil_scoped_release unlocked;
    MIMETypeHelper helper;
    ItemOptions options;
    options.timeLimit = timeLimit;
    options.ocr = ocr;
    options.cores = cores;
    answer = importItem(helper, path.string(), options);
  }
  py::object failure = answer.failure ? py::object(failureDict(*answer.failure)) : py::none();
  return py::make_tuple(toPython(answer.result, answer.extra), failure);
}

// The items a walk over the paths imports, (path, error dict or None) in import order, one at a
// time as the walk reaches them: a tree of any size costs the folders the walk is inside.
class PathWalk {
 public:
  PathWalk(const std::vector<std::filesystem::path>& paths, bool followLinks)
      : walk_(WalkOptions{.recursive = true,
                          .maxDepth = ItemOptions::kNoLimit,
                          .excludes = {},
                          .followLinks = followLinks}) {
    for (const auto& path : paths) walk_.add(path.string());
  }

  py::tuple next() {
    std::optional<WalkItem> item;
    {
      py::gil_scoped_release unlocked;
      item = walk_.next();
    }
    if (!item) throw py::stop_iteration();
    py::object failure = item->failure ? py::object(failureDict(*item->failure)) : py::none();
    py::object fsdecode = py::module_::import("os").attr("fsdecode");
    return py::make_tuple(fsdecode(py::bytes(item->path)), failure);
  }

 private:
  ItemWalk walk_;
};

py::tuple importData(const py::bytes& bytes, const std::optional<std::string>& url,
                     const std::optional<std::string>& mimeType) {
  std::string_view view = bytes;
  Data data(view.begin(), view.end());
  std::optional<TextString> urlText, mimeTypeText;
  if (url) urlText = fromUtf8(*url);
  if (mimeType) mimeTypeText = fromUtf8(*mimeType);
  ImportResult result;
  std::optional<Failure> failure;
  {
    py::gil_scoped_release unlocked;
    try {
      result = MIMETypeHelper().openData(data, urlText, mimeTypeText);
    } catch (const std::exception& exception) {
      failure = Failure{FailureKind::Damaged, exception.what()};
    }
  }
  if (failure) return py::make_tuple(py::none(), failureDict(*failure));
  return py::make_tuple(toPython(result), py::none());
}

py::tuple classifyPath(const std::filesystem::path& path) {
  std::string name = path.string();
  std::optional<Failure> failure;
  PropertyValue description;
  {
    py::gil_scoped_release unlocked;
    failure = missing(name);
    if (!failure) description = planDescription(planImport(name));
  }
  if (failure) return py::make_tuple(py::none(), failureDict(*failure));
  return py::make_tuple(toPython(description), py::none());
}

py::list formatList() {
  std::vector<PropertyValue> descriptions;
  {
    py::gil_scoped_release unlocked;
    const std::map<std::string, std::string> importers = importersByType();
    for (const Format& format : formats())
      descriptions.push_back(formatDescription(format, formatReader(format, importers)));
  }
  py::list list;
  for (const PropertyValue& description : descriptions) list.append(toPython(description));
  return list;
}

template <bool (MIMETypeHelper::*question)(const std::string&)>
bool ask(const std::filesystem::path& path) {
  py::gil_scoped_release unlocked;
  MIMETypeHelper helper;
  return (helper.*question)(path.string());
}

}  // namespace
}  // namespace ulvek::python

PYBIND11_MODULE(_ulvekbot, module) {
  using namespace ulvek;
  using namespace ulvek::python;
  module.doc() = "The ulvekbot library's imports; use the ulvekbot package, which wraps them.";
  // Each answers (value, None), or (partial value or None, {"kind", "message"}) on failure.
  module.def("import_item", &importItemOf, py::arg("path"), py::arg("time_limit") = 0.0,
             py::arg("ocr") = py::none(), py::arg("cores") = 0,
             "(result, error) of one file, as a line of `ulvekbot import`, its importer keeping "
             "to `cores` cores (0: every usable one).");
  py::class_<PathWalk>(module, "Walk",
                       "(path, error) of the files below the paths, as `ulvekbot import` walks "
                       "them, one at a time.")
      .def(py::init<const std::vector<std::filesystem::path>&, bool>(), py::arg("paths"),
           py::arg("follow_links") = false)
      .def("__iter__", [](PathWalk& walk) -> PathWalk& { return walk; })
      .def("__next__", &PathWalk::next);
  module.def("import_data", &importData, py::arg("data"), py::arg("url") = py::none(),
             py::arg("mime_type") = py::none());
  module.def("import_directory", [](const std::filesystem::path& path) {
    return onPath(path, [](MIMETypeHelper& helper, const std::string& name) {
      return helper.openDirectory(name);
    });
  });
  module.def("attributes", [](const std::filesystem::path& path) {
    return onPath(path, [](MIMETypeHelper& helper, const std::string& name) {
      return helper.openAttributes(name);
    });
  });
  module.def("classify", &classifyPath);
  module.def("formats", &formatList);
  module.def("supports_file", &ask<&MIMETypeHelper::supportsFile>);
  module.def("is_plain_file", &ask<&MIMETypeHelper::isPlainFile>);
  module.def("usable_cores", [] { return usableCores(); });
}
