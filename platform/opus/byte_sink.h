#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kwtsdk::internal {

/// The file that is made, for those who know its format. Throws ConversionFailure.
class ByteSink {
 public:
  virtual ~ByteSink() = default;
  virtual const std::string& path() const = 0;  // for messages
  virtual void append(std::span<const std::uint8_t> bytes) = 0;
  /// Writes over the first bytes; so many have to be there.
  virtual void overwriteBeginning(std::span<const std::uint8_t> bytes) = 0;
};

}  // namespace kwtsdk::internal
