#pragma once

#include <cassert>
#include <optional>
#include <string>
#include <utility>
#include <variant>

#include "base/error.h"

namespace ulvek {

// The outcome of an operation whose failure the caller must see: success, or one `Error` with
// its domain, code and message. Transports map it once (D-Bus error replies, CLI messages).
class [[nodiscard]] Status {
 public:
  Status() = default;
  Status(Error error) : error_(std::move(error)) {}

  bool ok() const { return !error_; }
  explicit operator bool() const { return ok(); }
  const Error& error() const {
    assert(error_);
    return *error_;
  }

 private:
  std::optional<Error> error_;
};

// A value, or the error that kept the operation from making one.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : storage_(std::in_place_index<0>, std::move(value)) {}
  Result(Error error) : storage_(std::in_place_index<1>, std::move(error)) {}

  bool ok() const { return storage_.index() == 0; }
  explicit operator bool() const { return ok(); }

  T& value() & {
    assert(ok());
    return std::get<0>(storage_);
  }
  const T& value() const& {
    assert(ok());
    return std::get<0>(storage_);
  }
  T&& value() && {
    assert(ok());
    return std::get<0>(std::move(storage_));
  }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }
  T& operator*() & { return value(); }
  const T& operator*() const& { return value(); }

  const Error& error() const {
    assert(!ok());
    return std::get<1>(storage_);
  }
  Status status() const { return ok() ? Status() : Status(error()); }
  // The value, or nothing: for callers that, like readers, answer nothing on failure.
  std::optional<T> take() && {
    if (!ok()) return std::nullopt;
    return std::get<0>(std::move(storage_));
  }

 private:
  std::variant<T, Error> storage_;
};

// A value made of many parts, some of which could not be made: the value from the parts that
// could, and one error that speaks for the others.
template <typename T>
struct [[nodiscard]] Partial {
  T value;
  Status status;
};

}  // namespace ulvek
