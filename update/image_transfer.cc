#include "update/image_transfer.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "codec/crc32.h"
#include "codec/error_codes.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::internal {
namespace {

constexpr QueueLabel kSendQueue{"com.kwt.sdk.send"};

/// Throws when the recorder's smallest packet reaches behind the end of the image.
Bytes slice(const Bytes& image, std::uint64_t position, std::uint64_t size) {
  if (auto bytes = subDataWithRange(image, position, size)) return std::move(*bytes);
  if (size <= image.size() - position) throw std::bad_alloc();
  throw std::out_of_range("The image of " + std::to_string(image.size()) + " bytes cannot be sent: at byte " +
                          std::to_string(position) + " only " + std::to_string(image.size() - position) +
                          " bytes remain, and a packet holds at least " +
                          std::to_string(wire::kSmallestPacket) +
                          ". Pad the image so that its length modulo " + std::to_string(wire::kSegmentSize) +
                          " is 0 or leaves enough for a packet.");
}

}  // namespace

std::string resumeKey(const Bytes& image) {
  return std::string("KWTKey_").append(std::to_string(crc32Value(image)));
}

struct ImageTransfer::Upload {
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
    callHost(channel_.log, completion, noResourcesError(), std::nullopt);
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
  const auto upload =
      std::make_shared<Upload>(Upload{image, resumeKey(*image), progress, completion, offset, {}, true});
  const auto work = [this, self, upload] { run(*upload); };
  if (!channel_.queues.async(kSendQueue, work)) end(noResourcesError());
}

void ImageTransfer::run(Upload& upload) {
  MaybeError outcome;
  const bool isOver = guardedCall(channel_.log, "The transfer of an image", [&] {
    try {
      outcome = sendAll(upload);
    } catch (const std::out_of_range& tail) {
      outcome = Error("std::out_of_range", 0, {{kDescriptionKey, tail.what()}});
    }
  });
  callHost(channel_.log, upload.completion, isOver ? outcome : noResourcesError(), std::nullopt);
}

MaybeError ImageTransfer::sendAll(Upload& upload) {
  channel_.log.info("Current MTU: %ld", mtu_.load());
  const auto limit = static_cast<std::uint64_t>(std::max(wire::kPacketFloor, mtu_.load()));
  upload.segment.reserve(wire::kSegmentSize);
  while (true) {
    if (!channel_.binding.connected()) return transferDisconnectedError();
    if (!upload.confirmed) return transferCheckError();
    if (upload.position >= upload.image->size()) return std::nullopt;
    sendPacket(upload, limit);
    if (upload.segment.size() >= wire::kSegmentSize || upload.position >= upload.image->size())
      checkSegment(upload);
  }
}

void ImageTransfer::sendPacket(Upload& upload, std::uint64_t limit) {
  const std::uint64_t total = upload.image->size();
  std::uint64_t size = std::min(limit, total - upload.position);
  size = std::max(size, wire::kSmallestPacket);
  size = std::min(size, wire::kSegmentSize - upload.segment.size());
  const Bytes packet = slice(*upload.image, upload.position, size);
  // What becomes of the write does not matter here: the check tells whether the segment arrived.
  updateSendData(packet, nullptr);
  upload.position += size;
  callHost(channel_.log, upload.progress, upload.position, total);
  upload.segment.insert(upload.segment.end(), packet.begin(), packet.end());
}

void ImageTransfer::checkSegment(Upload& upload) {
  Wait<bool> wait(*channel_.platform.scheduler, "kwt.update.check", false);
  updateCheckData(upload.segment,
                  [promise = wait.promise()](const MaybeError& error, bool) { promise->set(!error); });
  upload.confirmed = wait.wait(std::nullopt);
  if (upload.confirmed) {
    guardedCall(channel_.log, "Settings::write",
                [&] { channel_.platform.settings->write(upload.resumeKey, upload.position); });
  }
  upload.segment.clear();
}

// One packet is in flight, always: a command that is cleared meanwhile ends the wait only when no
// acknowledgement can come.
void ImageTransfer::updateSendData(const Bytes& packet, const ReplyHandler& completion) {
  const auto self = channel_.owner();
  Wait<bool> wait(*channel_.platform.scheduler, "kwt.update.data", false);
  {
    const auto promise = wait.promise();
    channel_.send({.type = KWTCmdTypeUpdateSendData,
                   .writeTo = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                   .frame = wire::dataRequest(packet),
                   .onAnswer =
                       [promise, completion, log = channel_.log](const Answer& answer) {
                         callHost(log, completion, answer.error, answer.reply);
                         promise->set(true);
                       },
                   .untilAcknowledged = promise});
  }
  wait.wait(std::nullopt);
}

void ImageTransfer::updateCheckData(const Bytes& segment, const StepCompletion& completion) {
  channel_.send({.type = KWTCmdTypeUpdateCheckData,
                 .writeTo = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                 .notifyOn = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                 .frame = wire::checkRequest(segment),
                 .onAnswer =
                     [log = channel_.log, completion](const Answer& answer) {
                       const bool confirmed =
                           answer.reply && answer.reply->starts_with(wire::kSegmentConfirmed);
                       const MaybeError outcome = confirmed ? std::nullopt : MaybeError(checkFailedError());
                       log.info("updateCheckData res:%d", confirmed ? 1 : 0);
                       answer.cleanUp();
                       callHost(log, completion, outcome, confirmed);
                     },
                 .logLine = "updateCheckData"});
}

void ImageTransfer::updateBye(const StepCompletion& completion) {
  channel_.send({.type = KWTCmdTypeUpdateBye,
                 .writeTo = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                 .notifyOn = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                 .frame = wire::byeRequest(),
                 .onAnswer = [log = channel_.log, completion](const Answer& answer) {
                   const bool accepted = answer.reply && answer.reply->starts_with(wire::kByeAccepted);
                   callHost(log, completion, accepted ? std::nullopt : MaybeError(updateByeError()),
                            accepted);
                   answer.cleanUp();
                   log.info("updateBye response:%@", answer.reply ? answer.reply->c_str() : nullptr);
                 }});
}

std::shared_ptr<Command> ImageTransfer::updateDone() {
  return channel_.send({.type = KWTCmdTypeUpdateDone,
                        .writeTo = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                        .frame = wire::doneRequest(),
                        .onAnswer = [](const Answer&) {}});  // nobody waits
}

}  // namespace kwtsdk::internal
