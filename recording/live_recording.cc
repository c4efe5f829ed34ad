#include "recording/live_recording.h"

#include <utility>

#include <kwtsdk/cmd_response.h>
#include <kwtsdk/opus_convert_type.h>

#include "codec/error_codes.h"
#include "codec/hex.h"
#include "wire/recorder_channel.h"

namespace kwtsdk {

std::int64_t KWTCmdResponse::writeRecordData(const Reply& reply,
                                             const std::shared_ptr<FileHandle>& toFileHandle) {
  const auto result = wire::recordPacketResult(reply);
  if (reply && reply->starts_with(wire::kAudioPacket) && toFileHandle) {
    const Bytes audio = internal::toData(*reply);
    toFileHandle->write(audio.data(), audio.size());
  }
  return static_cast<std::int64_t>(result);
}

namespace internal {
namespace {

constexpr QueueLabel kRecordQueue{"com.kwt.sdk.record"};

}  // namespace

// Touched on the recording queue only, once it has begun.
struct LiveRecording::Take : Stream {
  explicit Take(std::string output) : Stream(wire::CHARACTERISTIC_NOTIFY), path(std::move(output)) {}
  void logFailedWrite(const Logger& log, const FileHandle& output);

  const std::string path;
  bool failureLogged = false;
  bool ended = false;  // by the recorder; what follows may still answer a query that was routed here
};

void LiveRecording::Take::logFailedWrite(const Logger& log, const FileHandle& output) {
  const std::string failure = output.failure();
  if (failureLogged || failure.empty()) return;
  failureLogged = true;
  log.error("Cannot write %@: %@; the rest of the recording is not saved", path, failure);
}

void LiveRecording::startRecordWithType(std::int64_t type, const std::string& path,
                                        const Completion& completion) {
  const auto self = channel_.owner();
  const auto refuse = [log = channel_.log, completion](const Error& error) {
    callHost(log, completion, error);
  };
  if (channel_.refusedAsBusy(refuse)) return;
  if (!wire::isRecordType(type)) return refuse(recordTypeError());
  // Packets have to find the queue.
  if (!channel_.queues.async(kRecordQueue, [] {})) {
    return callHost(channel_.log, completion, noResourcesError());
  }
  const auto take = std::make_shared<Take>(path);
  channel_.send({.type = KWTCmdTypeStartRecord,
                 .writeTo = wire::CHARACTERISTIC_WRITE,
                 .notifyOn = wire::CHARACTERISTIC_NOTIFY,
                 .frame = wire::startRecordRequest(type),
                 .onAnswer = [log = channel_.log,
                              completion](const Answer& answer) { callHost(log, completion, answer.error); },
                 .onBusy = refuse,
                 .prepare =
                     [this, take] {
                       begin(take);
                       return true;
                     },
                 .stream = take});
}

void LiveRecording::begin(const SharedTake& take) {
  file.set(getFileHandleForWrite(take->path));
  if (!file.get()) channel_.log.error("Cannot open %@ for writing; the recording is not saved", take->path);
  channel_.beginStream(take, packetReceiver(take));
}

ReplyHandler LiveRecording::packetReceiver(const SharedTake& take) {
  return [this, weak = channel_.weakOwner(), take](const MaybeError&, const Reply& packet) {
    auto owner = weak.lock();
    if (!owner) return;
    channel_.watchdog.written = true;
    channel_.queues.async(kRecordQueue,
                          [this, owner = std::move(owner), take, packet] { takePacket(take, packet); });
  };
}

void LiveRecording::takePacket(const SharedTake& take, const Reply& packet) {
  bool stale = false;
  std::shared_ptr<Command> pending;
  std::shared_ptr<FileHandle> output;
  // A start or stop that is just being sent comes first: what is pending then is what this packet completes.
  channel_.transaction([&] {
    stale = !channel_.isCurrent(take);
    pending = channel_.dispatcher.pending();
    output = file.get();
  });
  if (stale) return;
  const auto result = static_cast<RecordPacketResult>(
      KWTCmdResponse::writeRecordData(packet, take->ended ? nullptr : output));
  if (output && !take->ended && channel_.isCurrent(take)) take->logFailedWrite(channel_.log, *output);
  const bool failed = result == RecordPacketResult::Failed;
  channel_.dispatcher.complete(pending, failed ? MaybeError(recordStartError()) : std::nullopt, std::nullopt);
  if (result == RecordPacketResult::Continue || std::exchange(take->ended, true)) return;
  channel_.closeStream(take);
  closeFileHandle(output);
}

void LiveRecording::stopRecord(const Completion& completion) {
  channel_.send(
      {.type = KWTCmdTypeStopRecord,
       .writeTo = wire::CHARACTERISTIC_WRITE,
       .notifyOn = wire::CHARACTERISTIC_NOTIFY,
       .frame = wire::stopRecordRequest(),
       .onAnswer =
           [log = channel_.log, completion](const Answer& answer) {
             // Any other notification frees the facade without a word to the caller: audio that was
             // under way is no answer.
             const bool stopped = answer.reply && answer.reply->starts_with(wire::kStopped);
             if (answer.isNotification && !stopped) return answer.command.keepNotifications();
             callHost(log, completion, answer.error);
           },
       .onBusy = [log = channel_.log, completion](const Error& error) { callHost(log, completion, error); },
       .prepare =
           [this] {
             channel_.endStream(nullptr);
             closeFileHandle(file.exchange(nullptr));
             return true;
           },
       .clearsPending = true});
}

bool convertOpusFile(const CommandChannel& channel, const std::string& inputPath,
                     const std::string& outputPath, std::int64_t decodeType) {
  constexpr std::int32_t kMp3Parameter = 24;
  const auto converter = channel.platform.opusConverter;
  if (!converter) return false;
  std::int32_t status = -1;
  guardedCall(channel.log, "The Opus converter", [&] {
    status = decodeType == OpusConvertTypeWav
                 ? converter->opus2wav(inputPath.c_str(), outputPath.c_str())
                 : converter->opus2mp3(inputPath.c_str(), outputPath.c_str(), kMp3Parameter);
  });
  return status >= 0;
}

}  // namespace internal
}  // namespace kwtsdk
