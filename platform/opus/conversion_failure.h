#pragma once

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

namespace kwtsdk::internal {

/// Ends a conversion; the text tells a person what happened and what to do.
class ConversionFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The system's words for errno.
inline std::string systemReason() { return std::generic_category().message(errno); }

}  // namespace kwtsdk::internal
