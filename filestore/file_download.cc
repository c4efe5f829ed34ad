#include "filestore/file_download.h"

#include <atomic>
#include <new>
#include <utility>

#include <kwtsdk/cmd_response.h>

#include "codec/error_codes.h"
#include "wire/recorder_channel.h"

namespace kwtsdk {

std::int64_t KWTCmdResponse::writeDownloadData(const Reply& reply, std::uint64_t* writenSize,
                                               const std::shared_ptr<FileHandle>& toFileHandle) {
  using Kind = wire::DownloadPacket::Kind;
  enum PacketResult : std::int64_t { kMoreToCome = 0, kLastData = 1, kEnd = 2 };
  const wire::DownloadPacket packet = wire::downloadPacket(reply);
  if (packet.kind == Kind::ignored) return kMoreToCome;
  if (packet.kind == Kind::end) return kEnd;
  if (toFileHandle) toFileHandle->write(packet.data().data(), packet.data().size());
  if (writenSize != nullptr) *writenSize = packet.valid;
  return packet.kind == Kind::lastData ? kLastData : kMoreToCome;
}

namespace internal {
namespace {

constexpr QueueLabel kDownloadQueue{"com.kwt.getflashlist.download"};

}  // namespace

struct FileDownload::Transfer : Stream {
  Transfer() : Stream(wire::CHARACTERISTIC_NOTIFY) {}

  void report(const Logger& log, const MaybeError& error) {
    if (!reported.exchange(true)) callHost(log, completion, error);
  }
  bool saved() const { return file && file->failure().empty(); }
  void logFailedWrite(const Logger& log);

  std::string path;
  Progress progress;
  Completion completion;
  std::int64_t fileId = 0;
  std::shared_ptr<FileHandle> file;
  std::uint64_t written = 0, total = 0;  // bytes; touched on the download queue only
  bool failureLogged = false;
  std::atomic<bool> complete{false}, reported{false};
  std::weak_ptr<Command> request;
};

void FileDownload::Transfer::logFailedWrite(const Logger& log) {
  if (failureLogged || !file) return;
  const std::string failure = file->failure();
  if (failure.empty()) return;
  failureLogged = true;
  log.error("Cannot write %@: %@; the recording stays on the device", path, failure);
}

void FileDownload::downloadFirstFlashFile(const std::string& outputFilePath, Progress progress,
                                          Completion completion) {
  const auto refuse = [&](const Error& error) { callHost(channel_.log, completion, error); };
  if (channel_.refusedAsBusy(refuse)) return;
  const auto transfer = std::make_shared<Transfer>();
  transfer->path = outputFilePath;
  transfer->progress = std::move(progress);
  transfer->completion = completion;
  const auto work = [this, owner = channel_.owner(), transfer] {
    if (!guardedCall(channel_.log, "A download", [&] { prepare(transfer); })) abandon(transfer);
  };
  if (!channel_.queues.async(kDownloadQueue, work)) transfer->report(channel_.log, noResourcesError());
}

void FileDownload::abandon(const SharedTransfer& transfer) {
  channel_.endStream(transfer);
  transfer->report(channel_.log, noResourcesError());
}

void FileDownload::prepare(const SharedTransfer& transfer) {
  const auto fail = [&](const Error& error) { transfer->report(channel_.log, error); };
  status_.getPower();  // wakes the recorder; the level does not matter
  transfer->fileId = files_.firstId();
  if (transfer->fileId <= 0) return fail(fileIdError());
  channel_.platform.scheduler->sleep(kPause);
  const auto header = files_.getFileInfo(transfer->fileId);
  if (!header) return fail(fileInfoError());
  transfer->file = getFileHandleForAppend(transfer->path);
  if (!transfer->file)
    channel_.log.error("Cannot open %@ for writing; the recording stays on the device", transfer->path);
  transfer->written = static_cast<std::uint64_t>(fileSize(transfer->path));
  transfer->total = header->filesize();
  if (transfer->written > transfer->total) return fail(longerThanFileError());
  request(transfer);
}

void FileDownload::request(const SharedTransfer& transfer) {
  transfer->request =
      channel_.send({.type = KWTCmdTypeDownloadFile,
                     .writeTo = wire::CHARACTERISTIC_WRITE,
                     .notifyOn = wire::CHARACTERISTIC_NOTIFY,
                     .frame = wire::downloadRequest(transfer->fileId, transfer->written),
                     .onAnswer =
                         [log = channel_.log, transfer](const Answer& answer) {
                           // Success is decided by the last packet. A notification that comes here without it
                           // found the receiver already taken away by the watchdog.
                           const bool unfinished = !transfer->complete && !answer.error;
                           transfer->report(log, unfinished ? monitorTimeoutError() : answer.error);
                           closeFileHandle(transfer->file);
                         },
                     .prepare = [this, transfer] { return begin(transfer); },
                     .stream = transfer});
}

bool FileDownload::begin(const SharedTransfer& transfer) {
  // A live recording that has just been started must keep its receiver and its command.
  if (channel_.dispatcher.busy() && channel_.dispatcher.receiver.get()) return false;
  channel_.watchdog.stop();  // an earlier download's must not take this receiver for its own
  channel_.beginStream(transfer, packetReceiver(transfer));
  armWatchdog();
  return true;
}

// Whatever command is pending at this moment is told when the stream stalls; in a plain download there is
// none.
void FileDownload::armWatchdog() {
  ReplyHandler onTimeout;
  if (auto pending = channel_.dispatcher.pending()) {
    onTimeout = [this, pending = std::move(pending)](const MaybeError& error, const Reply& reply) {
      channel_.dispatcher.complete(pending, error, reply);
    };
  }
  channel_.watchdog.start(channel_.weakOwner(), std::move(onTimeout));
}

ReplyHandler FileDownload::packetReceiver(const SharedTransfer& transfer) {
  return [this, weak = channel_.weakOwner(), transfer](const MaybeError& error, const Reply& packet) {
    auto owner = weak.lock();
    if (!owner) return;
    channel_.watchdog.written = true;
    channel_.log.debug("Call writeDataBlock!");
    // One packet that is missing makes the file another one, which must not end in a deletion.
    const bool isTaken = error != noResourcesError() && guardedCall(channel_.log, "A packet", [&] {
                           queuePacket(std::move(owner), transfer, packet);
                         });
    if (!isTaken) transfer->report(channel_.log, noResourcesError());
  };
}

void FileDownload::queuePacket(std::shared_ptr<void> owner, const SharedTransfer& transfer,
                               const Reply& packet) {
  const bool isQueued =
      channel_.queues.async(kDownloadQueue, [this, owner = std::move(owner), transfer, packet] {
        if (!guardedCall(channel_.log, "A packet", [&] { takePacket(transfer, packet); })) abandon(transfer);
      });
  if (!isQueued) throw std::bad_alloc();
}

void FileDownload::takePacket(const SharedTransfer& transfer, const Reply& packet) {
  if (!isWanted(transfer)) return;
  std::uint64_t size = 0;
  const std::int64_t result = KWTCmdResponse::writeDownloadData(packet, &size, transfer->file);
  transfer->logFailedWrite(channel_.log);
  transfer->written += size;
  callHost(channel_.log, transfer->progress, transfer->written, transfer->total);
  if ((transfer->written != 0 && transfer->written >= transfer->total) || result != 0) finish(transfer);
}

// What was reported as failed must not end in a deletion, and another's stream is not this one's to end.
bool FileDownload::isWanted(const SharedTransfer& transfer) {
  return !transfer->reported && channel_.isCurrent(transfer);
}

void FileDownload::finish(const SharedTransfer& transfer) {
  using Delivery = Dispatcher::Delivery;
  if (!isWanted(transfer)) return;
  callHost(channel_.log, transfer->progress, transfer->total, transfer->total);
  // What only the host's memory has is lost with its power, and the device's copy with the deletion.
  if (transfer->file && !transfer->file->sync()) transfer->logFailedWrite(channel_.log);
  std::shared_ptr<Command> pending;
  channel_.transaction([&] {
    transfer->complete = isWanted(transfer);
    pending = channel_.dispatcher.pending();
  });
  if (!transfer->complete) return;
  // A failed acknowledgement may be on its way to the caller at this very moment, or with a host's wrapper
  // that has yet to pass it on: then nothing is deleted.
  const auto request = transfer->request.lock();
  const auto delivery = channel_.dispatcher.complete(pending, std::nullopt, std::nullopt);
  const bool failing = delivery == Delivery::byAnother ||
                       (delivery == Delivery::nothingPending && request && !request->claimed());
  channel_.endStream(transfer);
  if (failing || !transfer->saved()) return;  // the device's copy is the only one
  removal_.notifyDownloadSuccess();
  channel_.platform.scheduler->sleep(kPause);
  removal_.deleteFile(transfer->fileId,
                      [log = channel_.log, id = transfer->fileId](const MaybeError& error, const auto&) {
                        log.info("Delete fileId(%ld) error:%@", id, error);
                      });
}

}  // namespace internal
}  // namespace kwtsdk
