#pragma once

#include <exception>
#include <new>
#include <string>
#include <utility>

#include <kwtsdk/bluez/problem.h>
#include <kwtsdk/error.h>

namespace sdbus {
class Error;
}

namespace kwtsdk::bluez {

/// How an error travels inside the adapter, as far as the public operation that reports it.
class BluezError : public std::exception {
 public:
  explicit BluezError(Error error) : error_(std::move(error)) {}
  explicit BluezError(Problem problem, const std::string& detail = {});

  const Error& error() const { return error_; }
  const char* what() const noexcept override { return "Bluetooth error"; }

 private:
  Error error_;
};

inline constexpr const char* kNoMemory = "no memory was left";

/// In the words of Problem; `detail` is added to the text.
Error errorOf(Problem problem, const std::string& detail = {});

/// What BlueZ or the bus answered: a Problem where it says that BlueZ cannot be reached, else the D-Bus name
/// as domain.
Error errorOf(const sdbus::Error& answer);

/// Of a bus that could not be opened.
Error openingErrorOf(const sdbus::Error& failure);

/// What is returned where there is no memory; made while there is some.
inline Error noMemory() { return errorOf(Problem::busFailure, kNoMemory); }

/// Runs what may throw, at the edge of a public operation. Without memory it throws before it has begun, or
/// not at all.
template <class Work>
MaybeError attempted(Work&& work, Error withoutMemory = noMemory()) {
  try {
    try {
      work();
      return std::nullopt;
    } catch (const BluezError& failure) {
      return failure.error();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (const std::exception& exception) {
      return errorOf(Problem::busFailure, exception.what());
    }
  } catch (const std::bad_alloc&) {
    return MaybeError(std::move(withoutMemory));
  }
}

}  // namespace kwtsdk::bluez
