#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"

namespace ulvek {

using Bytes = std::span<const std::uint8_t>;

// The contents of one input, however it arrived: a regular file (mapped when large, read when
// small), a copy of bytes, or a buffer handed over. Every reader reads through this, so files,
// in-memory data and archive members take one code path.
class FileBytes {
 public:
  static constexpr std::uint64_t kNoLimit = std::numeric_limits<std::uint64_t>::max();
  // Files at least this large are mapped instead of read.
  static constexpr std::uint64_t kMapThreshold = 256 * 1024;

  // What a read leaves in the page cache: a document is read once, and keeping it cached would
  // only push out the user's own work; the service's own files, read by every process that
  // starts, stay cached.
  enum class Caching { uncached, cached };

  // Only regular files are ever opened: a FIFO, socket, device or folder answers EINVAL
  // (EISDIR for a folder) without being opened, so a pipe can never block a request. A file
  // larger than `limit` answers EFBIG. Symbolic links are followed.
  static Result<FileBytes> read(const std::string& path, std::uint64_t limit = kNoLimit,
                                Caching caching = Caching::uncached);
  static FileBytes copyOf(Bytes bytes);
  static FileBytes adopt(std::vector<std::uint8_t> bytes);

  FileBytes(FileBytes&&) noexcept;
  FileBytes& operator=(FileBytes&&) noexcept;
  ~FileBytes();

  Bytes bytes() const { return {data_, size_}; }
  std::string_view chars() const { return {reinterpret_cast<const char*>(data_), size_}; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  bool isMapped() const { return mapped_; }

 private:
  FileBytes() = default;
  void release();

  const std::uint8_t* data_ = nullptr;
  std::size_t size_ = 0;
  bool mapped_ = false;
  std::vector<std::uint8_t> owned_;
};

// YES when `path` names a regular file (links followed): the only kind of item read for content.
bool isRegularFile(const std::string& path);

}  // namespace ulvek
