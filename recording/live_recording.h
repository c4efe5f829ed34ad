#pragma once

#include <memory>
#include <string>

#include <kwtsdk/record_packet_result.h>

#include "channel/command_channel.h"

namespace kwtsdk::internal {

/// A recording that the recorder streams while it makes it: start, packets into a file, stop.
class LiveRecording {
 public:
  explicit LiveRecording(CommandChannel& channel) : channel_(channel) {}

  void startRecordWithType(std::int64_t type, const std::string& outputFilePath,
                           const Completion& completion);
  void stopRecord(const Completion& completion);

  /// Where audio goes; keeps the closed file of a recording that the recorder ended.
  SharedField<std::shared_ptr<FileHandle>> file;

 private:
  struct Take;
  using SharedTake = std::shared_ptr<Take>;

  void begin(const SharedTake& take);
  void end();
  ReplyHandler packetReceiver(const SharedTake& take);

  // On the recording queue.
  void takePacket(const SharedTake& take, const Reply& packet);

  CommandChannel& channel_;
};

/// Conversion of recorded files by the platform's converter, on the caller's thread. No part of the traffic.
bool convertOpusFile(const CommandChannel& channel, const std::string& inputPath,
                     const std::string& outputPath, std::int64_t decodeType);

}  // namespace kwtsdk::internal
