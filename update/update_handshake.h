#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "channel/command_channel.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::internal {

/// What the recorder knows an image by, as hex text; none for fewer than four bytes.
inline std::optional<std::string> identifyImage(const Bytes& image) { return wire::identityOf(image); }

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

  /// Bytes of a packet: set by every begin, and by hosts.
  std::atomic<std::int64_t> mtu{0};

 private:
  using Judge = std::function<MaybeError(const MaybeError& error, const Reply& reply)>;

  void step(std::int64_t type, Bytes frame, const StepCompletion& completion, const Judge& judge,
            const std::function<void(const Reply& reply)>& afterwards = nullptr);

  CommandChannel& channel_;
};

}  // namespace kwtsdk::internal
