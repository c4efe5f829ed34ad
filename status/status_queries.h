#pragma once

#include <optional>
#include <string>

#include <kwtsdk/callbacks.h>

#include "channel/command_channel.h"

namespace kwtsdk::internal {

/// Battery level, firmware version and storage capacity.
class StatusQueries {
 public:
  explicit StatusQueries(CommandChannel& channel) : channel_(channel) {}

  void getPower(LevelCompletion completion);
  std::int64_t getPower();
  void getFirmwareVersion(ValueCompletion<std::string> completion);
  std::optional<std::string> getFirmwareVersion();
  void getCapacity(ValueCompletion<ByteCounts> completion);
  std::optional<ByteCounts> getCapacity();

 private:
  CommandChannel& channel_;
};

}  // namespace kwtsdk::internal
