#pragma once

#include <optional>
#include <utility>

#include <kwtsdk/session/errc.h>

namespace kwtsdk::session {

/// A value, or a failure and what had been achieved until then. The members are those of C++23's
/// std::expected as far as they go, so that it can take its place one day.
template <class T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}              // NOLINT: meant to convert
  Result(Failure failure) : failure_(std::move(failure)) {}  // NOLINT: meant to convert
  Result(Failure failure, T partial) : failure_(std::move(failure)), value_(std::move(partial)) {}

  bool has_value() const noexcept { return !failure_; }
  explicit operator bool() const noexcept { return has_value(); }

  /// Throws Exception.
  const T& value() const& { return check(), *value_; }
  T value() && { return check(), std::move(*value_); }
  T value_or(T otherwise) const { return has_value() ? *value_ : std::move(otherwise); }

  // has_value() must be true.
  const T& operator*() const& noexcept { return *value_; }
  const T* operator->() const noexcept { return &*value_; }

  // has_value() must be false.
  const Failure& error() const& noexcept { return *failure_; }

  /// What a failed operation had achieved: the files saved, the seconds recorded. Null when nothing.
  const T* partial() const noexcept { return failure_ && value_ ? &*value_ : nullptr; }

  /// The value or, after a failure, what had been achieved; null when nothing.
  const T* achieved() const noexcept { return value_ ? &*value_ : nullptr; }

 private:
  void check() const {
    if (failure_) throw Exception(*failure_);
  }
  std::optional<Failure> failure_;
  std::optional<T> value_;
};

struct Done {};  // the value of an operation that has none

}  // namespace kwtsdk::session
