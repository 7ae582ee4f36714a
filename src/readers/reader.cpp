#include "readers/reader.h"

#include <utility>

namespace ulvek {

ReaderSource ReaderSource::file(std::string path) {
  ReaderSource source;
  source.path_ = std::move(path);
  return source;
}

ReaderSource ReaderSource::data(Bytes bytes, std::string name) {
  ReaderSource source;
  source.data_ = bytes;
  source.name_ = std::move(name);
  return source;
}

std::string_view ReaderSource::name() const {
  if (!isFile()) return name_;
  std::string_view path = path_;
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::optional<Bytes> ReaderSource::bytes(std::uint64_t limit) const {
  if (!isFile()) {
    if (data_.size() > limit) return std::nullopt;
    return data_;
  }
  if (!triedLoading_) {
    triedLoading_ = true;
    loaded_ = FileBytes::read(path_).take();
  }
  if (!loaded_ || loaded_->size() > limit) return std::nullopt;
  return loaded_->bytes();
}

}  // namespace ulvek
