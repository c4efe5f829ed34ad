#pragma once

#include <cstdint>
#include <string>

#include "channel/command_channel.h"

namespace kwtsdk::internal {

/// Conversion of recorded files by the platform's converter, on the caller's thread. No part of the traffic.
class Conversion {
 public:
  explicit Conversion(CommandChannel& channel) : channel_(channel) {}

  bool decodeOpusFile(const std::string& inputPath, const std::string& outputPath, std::int64_t decodeType);

 private:
  CommandChannel& channel_;
};

}  // namespace kwtsdk::internal
