#pragma once

#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/record_packet_result.h>

#include "channel/command_channel.h"
#include "channel/shared_field.h"

namespace kwtsdk::internal {

/// A recording that the recorder streams while it makes it: start, packets into a file, stop.
class LiveRecording {
 public:
  explicit LiveRecording(CommandChannel& channel) : channel_(channel) {}

  void startRecordWithType(std::int64_t type, const std::string& outputFilePath, Completion completion);
  void stopRecord(const Completion& completion);

  /// Where audio goes; keeps the closed file of a recording that the recorder ended.
  SharedField<std::shared_ptr<FileHandle>> file;

 private:
  struct Job;
  using SharedJob = std::shared_ptr<Job>;

  // Under the send gate.
  CommandChannel::Attempt start(std::int64_t type, const std::string& path, const Completion& completion);
  CommandChannel::Attempt stop(const Completion& completion);
  void retire(const SharedJob& successor);

  ReplyHandler packetRoute(const SharedJob& job);
  ReplyHandler stopReplyHandler(const Completion& completion, CommandChannel::Subscription subscription);

  // On the recording queue.
  void takePacket(const SharedJob& job, const std::optional<std::string>& packet);
  void tearDown(const SharedJob& job, const std::shared_ptr<FileHandle>& output);
  void logFailedWrite(const SharedJob& job, const std::shared_ptr<FileHandle>& output);

  CommandChannel& channel_;
  SharedJob current_;  // under the send gate
};

}  // namespace kwtsdk::internal
