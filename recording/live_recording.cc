#include "recording/live_recording.h"

#include <array>
#include <atomic>
#include <utility>

#include <kwtsdk/cmd_response.h>

#include "channel/channels.h"
#include "channel/delivery_scope.h"
#include "channel/host_call.h"
#include "codec/error_codes.h"
#include "codec/hex.h"

namespace kwtsdk::internal {

namespace {

// By type. The last one is also the stop command: the recorder tells the two apart by whether it records.
constexpr std::array<const char*, 5> kCommands{"0181010000", "0281010000", "0381010000", "0481010000",
                                               "0081010000"};
constexpr std::size_t kStop = 4;

}  // namespace

struct LiveRecording::Job {
  std::string path;
  CallbackSlot::Generation before = 0;                // newest command stored before this recording's
  std::atomic<CallbackSlot::Generation> receiver{0};  // of this recording in the stream slot
  std::atomic<CommandChannel::Subscription> subscription{0};
  std::atomic<bool> sent{false};

  // On the recording queue only.
  bool failureLogged = false;
  bool ended = false;  // by the recorder; what follows may still answer a query that was routed here

  // Set by the next start or stop: packet steps still queued then do nothing. Without it a late packet would
  // complete the stop command.
  std::atomic<bool> over{false};
};

void LiveRecording::startRecordWithType(std::int64_t type, const std::string& path, Completion completion) {
  const auto self = channel_.owner();
  const auto refuse = [&](const Error& error) { callHost(channel_.log, completion, error); };
  if (channel_.refusedAsBusy(refuse)) return;
  if (type < 0 || type >= static_cast<std::int64_t>(kCommands.size())) return refuse(recordTypeError());
  // Packets have to find the queue.
  if (!channel_.queues.async(QueueId::record, [] {})) return refuse(noThreadError());
  channel_.attempt(refuse, [&] { return start(type, path, completion); });
}

CommandChannel::Attempt LiveRecording::start(std::int64_t type, const std::string& path,
                                             const Completion& completion) {
  const auto job = std::make_shared<Job>();
  job->path = path;
  retire(job);
  file.set(getFileHandleForWrite(path));
  if (!file.get()) channel_.log.error("Cannot open %@ for writing; the recording is not saved", path);
  // An earlier download's watchdog must not take the route below for its own.
  channel_.watchdog.stop();
  job->before = channel_.dispatcher.pending.generation();
  job->receiver = channel_.dispatcher.stream.set(packetRoute(job))->generation;
  job->subscription = channel_.subscribe(CHARACTERISTIC_NOTIFY);
  ReplyHandler handler = [log = channel_.log, completion](const MaybeError& error, const auto&) {
    callHost(log, completion, error);
  };
  auto refusal = channel_.dispatcher.sendHeld(toData(kCommands.at(static_cast<std::size_t>(type))),
                                              CHARACTERISTIC_WRITE, KWTCmdTypeStartRecord, handler);
  job->sent = true;
  return {std::move(handler), std::move(refusal)};
}

void LiveRecording::retire(const SharedJob& successor) {
  if (current_) current_->over = true;
  current_ = successor;
}

ReplyHandler LiveRecording::packetRoute(const SharedJob& job) {
  return
      [this, weak = channel_.weakOwner(), job](const MaybeError&, const std::optional<std::string>& packet) {
        auto owner = weak.lock();
        if (!owner) return;
        channel_.watchdog.written = true;
        // What comes before the command is on its way belongs to an earlier recording: its end must not tear
        // this one down.
        if (!job->sent && channel_.dispatcher.pending.generation() == job->before) return;
        channel_.queues.async(QueueId::record,
                              [this, owner = std::move(owner), job, packet] { takePacket(job, packet); });
      };
}

void LiveRecording::takePacket(const SharedJob& job, const std::optional<std::string>& packet) {
  // A waiter that this packet wakes goes on only after the tear-down.
  const DeliveryScope scope(channel_.dispatcher.gate);
  // Looked up before the test of `over`: what a later start or stop stores and opens is never touched here.
  const auto command = channel_.dispatcher.pending.current();
  const auto output = file.get();
  if (job->over) return;
  const auto result =
      static_cast<RecordPacketResult>(KWTCmdResponse::writeRecordData(packet, job->ended ? nullptr : output));
  logFailedWrite(job, output);
  if (command) {
    const bool failed = result == RecordPacketResult::Failed;
    channel_.dispatcher.complete(command, failed ? MaybeError(recordStartError()) : std::nullopt,
                                 std::nullopt);
  }
  if (result != RecordPacketResult::Continue && !job->ended) tearDown(job, output);
}

void LiveRecording::tearDown(const SharedJob& job, const std::shared_ptr<FileHandle>& output) {
  job->ended = true;
  channel_.dispatcher.stream.clearUpTo(job->receiver);
  channel_.endSubscription(CHARACTERISTIC_NOTIFY, job->subscription);
  closeFileHandle(output);
}

void LiveRecording::logFailedWrite(const SharedJob& job, const std::shared_ptr<FileHandle>& output) {
  if (job->failureLogged || job->ended || !output) return;
  const std::string failure = output->failure();
  if (failure.empty() || job->over) return;
  job->failureLogged = true;
  channel_.log.error("Cannot write %@: %@; the rest of the recording is not saved", job->path, failure);
}

void LiveRecording::stopRecord(const Completion& completion) {
  const auto refuse = [&](const Error& error) { callHost(channel_.log, completion, error); };
  channel_.attempt(refuse, [&] { return stop(completion); });
}

CommandChannel::Attempt LiveRecording::stop(const Completion& completion) {
  retire(nullptr);
  channel_.dispatcher.stream.clear();
  closeFileHandle(file.get());
  file.set(nullptr);
  ReplyHandler handler = stopReplyHandler(completion, channel_.subscribe(CHARACTERISTIC_NOTIFY));
  auto refusal = channel_.dispatcher.sendHeld(toData(kCommands.at(kStop)), CHARACTERISTIC_WRITE,
                                              KWTCmdTypeStopRecord, handler);
  return {std::move(handler), std::move(refusal)};
}

// Any other notification frees the link without a word to the caller: audio that was under way is no answer.
ReplyHandler LiveRecording::stopReplyHandler(const Completion& completion,
                                             CommandChannel::Subscription subscription) {
  return [this, weak = channel_.weakOwner(), completion, subscription](
             const MaybeError& error, const std::optional<std::string>& reply) {
    const auto alive = weak.lock();
    if (!alive || (!error && !(reply && reply->starts_with("0080")))) return;
    const CallbackSlot::Generation own = DeliveryScope::generationOf(channel_.dispatcher.pending);
    callHost(channel_.log, completion, error);
    channel_.dispatcher.pending.clearUpTo(own);
    channel_.endSubscription(CHARACTERISTIC_NOTIFY, subscription);
  };
}

}  // namespace kwtsdk::internal
