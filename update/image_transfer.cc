#include "update/image_transfer.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "channel/channels.h"
#include "channel/host_call.h"
#include "channel/wait_cell.h"
#include "codec/crc32.h"
#include "codec/error_codes.h"
#include "update/frames.h"
#include "update/resume_record.h"
#include "update/segment.h"

namespace kwtsdk::internal {
namespace {

constexpr std::int64_t kPacketFloor = 220;  // a smaller MTU does not make packets smaller
constexpr std::uint64_t kSmallestPacket = 88;

/// Throws when the recorder's smallest packet reaches behind the end of the image.
Bytes slice(const Bytes& image, std::uint64_t position, std::uint64_t size) {
  if (auto bytes = subDataWithRange(image, position, size)) return std::move(*bytes);
  throw std::out_of_range("The image of " + std::to_string(image.size()) + " bytes cannot be sent: at byte " +
                          std::to_string(position) + " only " + std::to_string(image.size() - position) +
                          " bytes remain, and a packet holds at least " + std::to_string(kSmallestPacket) +
                          ". Pad the image so that its length modulo " + std::to_string(kSegmentSize) +
                          " is 0 or leaves enough for a packet.");
}

}  // namespace

struct ImageTransfer::Job {
  Image image;
  std::string resumeKey;
  Progress progress;
  Outcome completion;
  std::uint64_t position;  // bytes of the image sent so far
  Bytes segment;           // sent since the last check
  bool confirmed = true;
};

void ImageTransfer::uploadCopyOf(const std::optional<Bytes>& image, std::uint64_t offset,
                                 const Progress& progress, const Outcome& completion) {
  Image copy;
  if (guardedCall(channel_.log, "Copying an image",
                  [&] { copy = image ? std::make_shared<const Bytes>(*image) : nullptr; })) {
    uploadFirmWare(copy, offset, progress, completion);
  } else {
    const Error error = exceptionError("The image could not be copied; the log says why.");
    callHost(channel_.log, completion, error, std::nullopt);
  }
}

void ImageTransfer::uploadFirmWare(const Image& image, std::uint64_t offset, const Progress& progress,
                                   const Outcome& completion) {
  const auto self = channel_.owner();
  const auto end = [&](const MaybeError& error) { callHost(channel_.log, completion, error, std::nullopt); };
  if (!image) return end(emptyImageError());
  if (image->size() == offset) return end(std::nullopt);
  if (image->size() < offset) {
    channel_.log.info("断点续传的偏移量大于等于固件文件长度,重置为0");
    offset = 0;
  }
  const auto job = std::make_shared<Job>(
      Job{image, resumeKey(crc32Value(*image)), progress, completion, offset, {}, true});
  const auto work = [this, self, job] { run(*job); };
  if (!channel_.queues.async(QueueId::send, work)) end(noThreadError());
}

void ImageTransfer::run(Job& job) {
  MaybeError outcome = exceptionError("The transfer of the image failed; the log says why.");
  guardedCall(channel_.log, "The transfer of an image", [&] {
    try {
      outcome = sendAll(job);
    } catch (const std::out_of_range& tail) {
      outcome = Error("std::out_of_range", 0, {{kDescriptionKey, tail.what()}});
    }
  });
  callHost(channel_.log, job.completion, outcome, std::nullopt);
}

MaybeError ImageTransfer::sendAll(Job& job) {
  channel_.log.info("Current MTU: %ld", mtu_.load());
  const auto limit = static_cast<std::uint64_t>(std::max(kPacketFloor, mtu_.load()));
  job.segment.reserve(kSegmentSize);
  while (true) {
    if (!channel_.link.connected()) return transferDisconnectedError();
    if (!job.confirmed) return transferCheckError();
    if (job.position >= job.image->size()) return std::nullopt;
    sendPacket(job, limit);
    if (job.segment.size() >= kSegmentSize || job.position >= job.image->size()) checkSegment(job);
  }
}

void ImageTransfer::sendPacket(Job& job, std::uint64_t limit) {
  const std::uint64_t total = job.image->size();
  std::uint64_t size = std::min(limit, total - job.position);
  size = std::max(size, kSmallestPacket);
  size = std::min(size, kSegmentSize - job.segment.size());
  const Bytes packet = slice(*job.image, job.position, size);
  // What becomes of the write does not matter here: the check tells whether the segment arrived.
  updateSendData(packet, nullptr);
  job.position += size;
  callHost(channel_.log, job.progress, job.position, total);
  job.segment.insert(job.segment.end(), packet.begin(), packet.end());
}

void ImageTransfer::checkSegment(Job& job) {
  const auto cell = std::make_shared<WaitCell<bool>>(*channel_.platform.scheduler, "kwt.update.check", false);
  updateCheckData(job.segment, [cell, dropped = WaitCell<bool>::endWhenDropped(cell)](
                                   const MaybeError& error, bool) { cell->finish(!error); });
  job.confirmed = cell->wait(std::nullopt);
  if (job.confirmed) {
    guardedCall(channel_.log, "Settings::write",
                [&] { channel_.platform.settings->write(job.resumeKey, job.position); });
  }
  job.segment.clear();
}

void ImageTransfer::updateSendData(const Bytes& packet, const ReplyHandler& completion) {
  const auto self = channel_.owner();
  const auto cell = std::make_shared<WaitCell<bool>>(*channel_.platform.scheduler, "kwt.update.data", false);
  channel_.dispatcher.send(
      dataRequest(packet), CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY, KWTCmdTypeUpdateSendData,
      [cell, dropped = WaitCell<bool>::endWhenDropped(cell), completion, log = channel_.log](
          const MaybeError& error, const std::optional<std::string>& reply) {
        callHost(log, completion, error, reply);
        cell->finish(true);
      });
  cell->wait(std::nullopt);
}

void ImageTransfer::updateCheckData(const Bytes& segment, const StepCompletion& completion) {
  channel_.log.info("updateCheckData");
  channel_.exchange(CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY, KWTCmdTypeUpdateCheckData, checkRequest(segment),
                    [&](CommandChannel::Subscription subscription) -> ReplyHandler {
                      return [this, weak = channel_.weakOwner(), completion, subscription](
                                 const MaybeError&, const std::optional<std::string>& reply) {
                        const auto alive = weak.lock();
                        if (!alive) return;
                        const bool confirmed = reply && reply->starts_with("8301");
                        channel_.log.info("updateCheckData res:%d", confirmed ? 1 : 0);
                        channel_.endSubscription(CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY, subscription);
                        callHost(channel_.log, completion,
                                 confirmed ? std::nullopt : MaybeError(checkFailedError()), confirmed);
                      };
                    });
}

void ImageTransfer::updateBye(const StepCompletion& completion) {
  channel_.exchange(CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY, KWTCmdTypeUpdateBye, byeRequest(),
                    [&](CommandChannel::Subscription subscription) -> ReplyHandler {
                      return [this, weak = channel_.weakOwner(), completion, subscription](
                                 const MaybeError&, const std::optional<std::string>& reply) {
                        const auto alive = weak.lock();
                        if (!alive) return;
                        const bool accepted = reply && reply->starts_with("8401");
                        callHost(channel_.log, completion,
                                 accepted ? std::nullopt : MaybeError(updateByeError()), accepted);
                        channel_.endSubscription(CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY, subscription);
                        channel_.log.info("updateBye response:%@", reply.value_or("(null)"));
                      };
                    });
}

CallbackSlot::Generation ImageTransfer::updateDone() {
  Dispatcher& dispatcher = channel_.dispatcher;
  const ReplyHandler nobodyWaits = [](const MaybeError&, const std::optional<std::string>&) {};
  std::optional<Dispatcher::Refusal> refusal;
  CallbackSlot::Generation command = 0;
  {
    const SendGate::Hold hold(dispatcher.gate);
    refusal = dispatcher.sendHeld(doneRequest(), CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                                  KWTCmdTypeUpdateDone, nobodyWaits);
    if (!refusal) command = dispatcher.pending.generation();
  }
  if (refusal) dispatcher.reportRefusal(*refusal, nobodyWaits);
  return command;
}

}  // namespace kwtsdk::internal
