#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "channel/command_channel.h"

namespace kwtsdk::internal {

/// The five exchanges before an image is sent. Each clears what is pending when it is answered or refused,
/// also another command.
class UpdateHandshake {
 public:
  explicit UpdateHandshake(CommandChannel& channel) : channel_(channel) {}

  void updatePrepare(const StepCompletion& completion);
  void updateSelectionSide(const StepCompletion& completion);
  void updateResumeVerify(std::int64_t segmentSize, std::uint64_t offset, const StepCompletion& completion);
  void updateBegin(const Bytes& image, const StepCompletion& completion);
  void updateConfig(const Bytes& image, const StepCompletion& completion);

  /// Set by every begin, and by hosts.
  std::atomic<std::int64_t> mtu{0};

 private:
  using Reply = std::optional<std::string>;
  using Judge = std::function<MaybeError(const MaybeError& error, const Reply& reply)>;

  void exchange(std::int64_t cmdType, const Bytes& frame, const StepCompletion& completion,
                const Judge& judge, const std::function<void(const Reply& reply)>& afterwards = nullptr);
  std::int64_t longestWrite() const;

  CommandChannel& channel_;
};

}  // namespace kwtsdk::internal
