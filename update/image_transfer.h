#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "channel/command_channel.h"

namespace kwtsdk::internal {

/// The settings key under which the confirmed bytes of an image are kept.
std::string resumeKey(const Bytes& image);

/// Sends an image in packets, lets the recorder confirm every segment, and closes the update.
class ImageTransfer {
 public:
  /// `mtu` is what the begin exchange settled.
  ImageTransfer(CommandChannel& channel, const std::atomic<std::int64_t>& mtu)
      : channel_(channel), mtu_(mtu) {}

  using Image = std::shared_ptr<const Bytes>;  // null: none
  using Outcome = ValueCompletion<std::string>;

  /// The same for an image that the caller keeps.
  void uploadCopyOf(const std::optional<Bytes>& image, std::uint64_t offset, const Progress& progress,
                    const Outcome& completion);
  void uploadFirmWare(const Image& image, std::uint64_t offset, const Progress& progress,
                      const Outcome& completion);
  void updateSendData(const Bytes& packet, const ReplyHandler& completion);
  void updateCheckData(const Bytes& segment, const StepCompletion& completion);
  void updateBye(const StepCompletion& completion);

  /// The command, which nobody is expected to answer; null when it was not sent.
  std::shared_ptr<Command> updateDone();

 private:
  struct Upload;

  // On the transfer queue.
  void run(Upload& upload);
  MaybeError sendAll(Upload& upload);
  void sendPacket(Upload& upload, std::uint64_t limit);
  void checkSegment(Upload& upload);

  CommandChannel& channel_;
  const std::atomic<std::int64_t>& mtu_;
};

}  // namespace kwtsdk::internal
