#include "filestore/file_download.h"

#include <atomic>
#include <utility>

#include <kwtsdk/cmd_response.h>

#include "channel/channels.h"
#include "channel/host_call.h"
#include "codec/error_codes.h"
#include "filestore/frames.h"
#include "status/blocking_request.h"

namespace kwtsdk::internal {

struct FileDownload::Job {
  std::string path;
  Progress progress;
  Completion completion;

  std::int64_t fileId = 0;
  std::shared_ptr<FileHandle> file;
  std::uint64_t written = 0, total = 0;   // bytes; touched on the download queue only
  CallbackSlot::Generation receiver = 0;  // of this download in the stream slot
  CallbackSlot::Generation command = 0;   // of its request in the pending slot
  bool failureLogged = false;

  // Set once the outcome is decided: packet steps still queued then do nothing. Without it a stray packet
  // would finish the download twice, and one that was reported as failed would still delete the recording.
  std::atomic<bool> over{false};

  void report(const Logger& log, const MaybeError& error) const { callHost(log, completion, error); }
};

void FileDownload::downloadFirstFlashFile(const std::string& outputFilePath, Progress progress,
                                          Completion completion) {
  const auto refuse = [&](const Error& error) { callHost(channel_.log, completion, error); };
  if (channel_.refusedAsBusy(refuse)) return;
  const auto job = std::make_shared<Job>();
  job->path = outputFilePath;
  job->progress = std::move(progress);
  job->completion = completion;
  const auto work = [this, owner = channel_.owner(), job] {
    if (!guardedCall(channel_.log, "A download", [&] { prepare(job); })) abandon(job);
  };
  if (!channel_.queues.async(QueueId::download, work)) refuse(noThreadError());
}

void FileDownload::abandon(const SharedJob& job) {
  channel_.dispatcher.stream.clearUpTo(job->receiver);
  if (!job->over.exchange(true)) job->report(channel_.log, noThreadError());
}

void FileDownload::prepare(const SharedJob& job) {
  status_.getPower();  // wakes the recorder; the level does not matter
  job->fileId = static_cast<std::int64_t>(files_.getFileNumAndFirstId().value_or(FlashInfo{}).FirstID);
  if (job->fileId <= 0) return job->report(channel_.log, fileIdError());
  channel_.platform.scheduler->sleep(kPause);
  const auto header = files_.getFileInfo(job->fileId);
  if (!header) return job->report(channel_.log, fileInfoError());
  job->file = getFileHandleForAppend(job->path);
  if (!job->file)
    channel_.log.error("Cannot open %@ for writing; the recording stays on the device", job->path);
  job->written = static_cast<std::uint64_t>(fileSize(job->path));
  job->total = header->filesize();
  if (job->written > job->total) return job->report(channel_.log, longerThanFileError());
  stream(job);
}

void FileDownload::stream(const SharedJob& job) {
  const Request request{
      .writeTo = CHARACTERISTIC_WRITE,
      .notifyOn = CHARACTERISTIC_NOTIFY,
      .cmdType = KWTCmdTypeDownloadFile,
      .frame = downloadRequest(job->fileId, job->written),
      .onReply =
          [log = channel_.log, job](const MaybeError& error, const std::optional<std::string>&) {
            // Success is decided by the last packet. A notification that comes here without it found the
            // receiver already taken away by the watchdog.
            const bool unfinished = !job->over.exchange(true);
            job->report(log, unfinished && !error ? monitorTimeoutError() : error);
            closeFileHandle(job->file);
          },
      .onBusy = nullptr,
  };
  std::optional<Dispatcher::Refusal> refusal;
  {
    const SendGate::Hold hold(channel_.dispatcher.gate);
    refusal = sendRequest(job, request);
  }
  if (refusal) channel_.dispatcher.reportRefusal(*refusal, request.onReply);
}

std::optional<Dispatcher::Refusal> FileDownload::sendRequest(const SharedJob& job, const Request& request) {
  Dispatcher& dispatcher = channel_.dispatcher;
  // A live recording that has just been started must keep its route and its command.
  if (dispatcher.pending.occupied() && dispatcher.stream.occupied()) {
    return Dispatcher::Refusal{dispatcherBusyError(request.cmdType), dispatcher.pending.generation()};
  }
  // An earlier download's watchdog must not take the receiver below for its own.
  channel_.watchdog.stop();
  job->receiver = dispatcher.stream.set(packetReceiver(job))->generation;
  armWatchdog();
  auto refusal = channel_.subscribeAndSend(request);
  job->command = dispatcher.pending.generation();
  return refusal;
}

// Whatever command is pending at this moment is told when the stream stalls; in a plain download there is
// none.
void FileDownload::armWatchdog() {
  ReplyHandler onTimeout;
  if (auto pending = channel_.dispatcher.pending.current()) {
    onTimeout = [this, pending = std::move(pending)](const MaybeError& error, const auto& reply) {
      channel_.dispatcher.complete(pending, error, reply);
    };
  }
  channel_.watchdog.start(channel_.weakOwner(), std::move(onTimeout));
}

ReplyHandler FileDownload::packetReceiver(const SharedJob& job) {
  return
      [this, weak = channel_.weakOwner(), job](const MaybeError&, const std::optional<std::string>& packet) {
        auto owner = weak.lock();
        if (!owner) return;
        channel_.watchdog.written = true;
        channel_.log.debug("Call writeDataBlock!");
        channel_.queues.async(QueueId::download,
                              [this, owner = std::move(owner), job, packet] { takePacket(job, packet); });
      };
}

void FileDownload::takePacket(const SharedJob& job, const std::optional<std::string>& packet) {
  const auto receiver = channel_.dispatcher.stream.current();
  const bool replaced = receiver && receiver->generation != job->receiver;  // by a live recording
  if (job->over || replaced) return;
  std::uint64_t size = 0;
  const std::int64_t result = KWTCmdResponse::writeDownloadData(packet, &size, job->file);
  logFailedWrite(job);
  job->written += size;
  callHost(channel_.log, job->progress, job->written, job->total);
  if ((job->written != 0 && job->written >= job->total) || result != 0) finish(job);
}

void FileDownload::finish(const SharedJob& job) {
  const bool reported = job->over.exchange(true);
  const bool saved = job->file && job->file->failure().empty();
  if (!reported) callHost(channel_.log, job->progress, job->total, job->total);
  // A failed acknowledgement may be on its way to the caller at this very moment: then nothing is deleted.
  const bool failing = reported || complete(job) == Dispatcher::Delivery::byAnother;
  channel_.dispatcher.stream.clearUpTo(job->receiver);
  if (failing) return;
  if (!saved) return;  // the device's copy is the only one
  notifyDownloadSuccess();
  channel_.platform.scheduler->sleep(kPause);
  deletion_.deleteFile(job->fileId,
                       [log = channel_.log, id = job->fileId](const MaybeError& error, const auto&) {
                         log.info("Delete fileId(%ld) error:%@", id, description(error));
                       });
}

// After the watchdog has cleared the request, the pending command is another's.
Dispatcher::Delivery FileDownload::complete(const SharedJob& job) {
  const auto pending = channel_.dispatcher.pending.current();
  const bool own = pending && pending->generation == job->command;
  return channel_.dispatcher.complete(own ? pending : nullptr, std::nullopt, std::nullopt);
}

void FileDownload::logFailedWrite(const SharedJob& job) {
  if (job->failureLogged || !job->file) return;
  const std::string failure = job->file->failure();
  if (failure.empty()) return;
  job->failureLogged = true;
  channel_.log.error("Cannot write %@: %@; the recording stays on the device", job->path, failure);
}

void FileDownload::notifyDownloadSuccess(ReplyHandler completion) {
  channel_.request({
      .writeTo = CHARACTERISTIC_WRITE,
      .notifyOn = CHARACTERISTIC_NOTIFY,
      .cmdType = KWTCmdTypeNotifyDownloadSuccess,
      .frame = downloadNotice(),
      .onReply = [log = channel_.log, completion](
                     const MaybeError& error,
                     const std::optional<std::string>& reply) { callHost(log, completion, error, reply); },
      .onBusy = channel_.errorTo(completion),
  });
}

bool FileDownload::notifyDownloadSuccess() {
  constexpr Duration kNoticeTimeout = std::chrono::seconds(2);
  return blockingRequest<bool>(channel_, QueueId::notifyDownload, kNoticeTimeout, true, [this](auto finish) {
    notifyDownloadSuccess([finish](const MaybeError&, const std::optional<std::string>&) { finish(true); });
  });
}

}  // namespace kwtsdk::internal
