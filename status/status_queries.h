#pragma once

#include <optional>
#include <string>

#include <kwtsdk/callbacks.h>

#include "channel/command_channel.h"

namespace kwtsdk::internal {

/// Battery level, firmware version and storage capacity. A query is a plan for its command, sent as it is by
/// the completion form and asked for by the blocking one.
class StatusQueries {
 public:
  explicit StatusQueries(CommandChannel& channel) : channel_(channel) {}

  void getPower(const LevelCompletion& completion) { channel_.send(powerQuery(completion)); }
  std::int64_t getPower();
  void getFirmwareVersion(const ValueCompletion<std::string>& completion) {
    channel_.send(versionQuery(completion));
  }
  std::optional<std::string> getFirmwareVersion();
  void getCapacity(const ValueCompletion<ByteCounts>& completion) {
    channel_.send(capacityQuery(completion));
  }
  std::optional<ByteCounts> getCapacity();

 private:
  Command::Plan powerQuery(LevelCompletion completion) const;
  Command::Plan versionQuery(ValueCompletion<std::string> completion) const;
  Command::Plan capacityQuery(ValueCompletion<ByteCounts> completion) const;

  CommandChannel& channel_;
};

}  // namespace kwtsdk::internal
