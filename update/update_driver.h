#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "update/image_transfer.h"
#include "update/update_handshake.h"

namespace kwtsdk::internal {

/// A whole firmware update: handshake, transfer, bye, done.
class UpdateDriver {
 public:
  UpdateDriver(CommandChannel& channel, UpdateHandshake& handshake, ImageTransfer& transfer)
      : channel_(channel), handshake_(handshake), transfer_(transfer) {}

  void updateFirmware(const std::string& imagePath, const Progress& progress,
                      const ValueCompletion<std::string>& completion);

 private:
  // On the await queue.
  MaybeError install(const ImageTransfer::Image& image, const Progress& progress);
  void logConfirmed(const Bytes& image) const;
  std::shared_ptr<Command> finish(const Bytes& image);
  MaybeError runStep(std::optional<Duration> timeout,
                     const std::function<void(std::function<void(const MaybeError&)>)>& step);

  CommandChannel& channel_;
  UpdateHandshake& handshake_;
  ImageTransfer& transfer_;
};

}  // namespace kwtsdk::internal
