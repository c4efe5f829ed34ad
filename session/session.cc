#include <kwtsdk/session/session.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <utility>

#include "session/download.h"
#include "session/operation_job.h"
#include "session/queries.h"
#include "session/recording.h"
#include "session/store.h"
#include "session/transaction.h"
#include "session/update.h"
#include "session/worker.h"

namespace kwtsdk::session {

Link::~Link() = default;

struct Session::Core {
  std::shared_ptr<detail::Worker> worker;
};

namespace {

using detail::Conversation, detail::OperationJob, detail::Outcome, detail::Query, detail::QueryJob,
    detail::StopWish, detail::Worker;
using WorkerPtr = std::shared_ptr<Worker>;

constexpr Duration kQueryTimeout = std::chrono::seconds(30), kStoreTimeout = std::chrono::minutes(2);

/// Limits::timeout, or what is usual for it.
std::optional<Duration> timeoutOf(const Limits& limits, std::optional<Duration> usual) {
  return limits.timeout() ? limits.timeout() : usual;
}

template <class T>
Operation<T> start(const WorkerPtr& worker, const char* name, const Limits& limits,
                   const std::optional<Duration>& usual, typename OperationJob<T>::Body body) {
  const auto outcome = Worker::makeOutcome<T>(name, worker->surroundings());
  worker->submit(std::make_shared<OperationJob<T>>(worker, outcome, limits, std::move(body)),
                 timeoutOf(limits, usual));
  return Operation<T>(outcome);
}

template <class T>
Operation<T> ask(const WorkerPtr& worker, const char* name, const Limits& limits, Query<T> query) {
  const auto outcome = Worker::makeOutcome<T>(name, worker->surroundings());
  worker->submit(std::make_shared<QueryJob<T>>(worker, outcome, limits, std::move(query)),
                 timeoutOf(limits, kQueryTimeout));
  return Operation<T>(outcome);
}

detail::NoteVersion noteVersionIn(const WorkerPtr& worker) {
  return [weak = std::weak_ptr(worker)](const std::string& version) {
    if (const auto held = weak.lock()) held->noteFirmware(version);
  };
}

class RecordingJob : public OperationJob<Recorded> {
 public:
  RecordingJob(const WorkerPtr& worker, std::shared_ptr<Outcome<Recorded>> outcome, const Limits& limits,
               Body body, StopWish stop)
      : OperationJob(worker, std::move(outcome), limits, std::move(body)), stop_(std::move(stop)) {}

  bool isRecording() const override { return true; }
  void stop() override { *stop_ = true; }

 private:
  const StopWish stop_;
};

}  // namespace

std::shared_ptr<Session> Session::create(std::shared_ptr<Link> link, const Options& options) {
  auto core = std::make_shared<Core>();
  core->worker = Worker::create(std::move(link), options);
  return std::shared_ptr<Session>(new Session(std::move(core)));
}

Session::Session(std::shared_ptr<Core> core) : core_(std::move(core)) {}

Session::~Session() {
  constexpr Duration longest = std::chrono::seconds(5);
  close();
  const auto gone = core_->worker->gone();
  const bool mayWait = core_->worker->join();
  core_->worker = nullptr;
  // A thread that has just told it something may hold it for another moment.
  if (mayWait) gone->wait(longest);
}

void Session::close() { core_->worker->close(); }
Session::Snapshot Session::snapshot() const { return core_->worker->snapshot(); }

// ---- Link and status ----

Operation<Done> Session::connect(const Limits& limits) {
  return start<Done>(core_->worker, "connect", limits, kQueryTimeout, [](Conversation& recorder) {
    return recorder.persist([]() -> Result<Done> { return Done{}; });
  });
}

Operation<Done> Session::disconnect() {
  return start<Done>(core_->worker, "disconnect", {}, std::nullopt,
                     [](Conversation& recorder) -> Result<Done> {
                       recorder.endLink();
                       return Done{};
                     });
}

Operation<std::uint64_t> Session::battery(const Limits& limits) {
  return ask(core_->worker, "battery", limits, detail::batteryQuery());
}

Operation<std::string> Session::firmware(const Limits& limits) {
  return ask(core_->worker, "firmware", limits, detail::firmwareQuery(noteVersionIn(core_->worker)));
}

Operation<ByteCounts> Session::storage(const Limits& limits) {
  return ask(core_->worker, "storage", limits, detail::storageQuery());
}

Operation<Status> Session::status(const Limits& limits) {
  return ask(core_->worker, "status", limits, detail::statusQuery(noteVersionIn(core_->worker)));
}

// ---- Recordings ----

Operation<std::vector<RecordingInfo>> Session::recordings(const Limits& limits) {
  return start<std::vector<RecordingInfo>>(
      core_->worker, "recordings", limits, kStoreTimeout, [](Conversation& recorder) {
        recorder.operation().report(ProgressReport::Stage::asking);
        return recorder.persist([&recorder] { return detail::askRecordings(recorder); });
      });
}

Operation<Saved> Session::download(const std::filesystem::path& file, const DownloadOptions& options,
                                   const Limits& limits, std::optional<std::uint32_t> expected) {
  return start<Saved>(core_->worker, "download", limits, std::nullopt,
                      [file, options, expected](Conversation& recorder) {
                        return detail::download(recorder, file, options, expected);
                      });
}

Operation<Harvest> Session::downloadAll(const std::filesystem::path& folder, const DownloadOptions& options,
                                        const Limits& limits) {
  return start<Harvest>(
      core_->worker, "downloadAll", limits, std::nullopt,
      [folder, options](Conversation& recorder) { return detail::downloadAll(recorder, folder, options); });
}

Operation<Done> Session::remove(std::uint32_t id, const Limits& limits) {
  return start<Done>(core_->worker, "remove", limits, kStoreTimeout,
                     [id](Conversation& recorder) { return detail::removeFirst(recorder, id); });
}

Operation<Recorded> Session::record(const std::filesystem::path& file, const RecordOptions& options,
                                    const Limits& limits) {
  const auto& worker = core_->worker;
  const auto outcome = Worker::makeOutcome<Recorded>("record", worker->surroundings());
  const auto stop = std::make_shared<std::atomic<bool>>(false);
  auto body = [file, options, stop, at = worker.get()](Conversation& recorder) {
    return detail::record(recorder, *at, file, options, stop);
  };
  worker->submit(std::make_shared<RecordingJob>(worker, outcome, limits, std::move(body), stop),
                 limits.timeout());
  return Operation<Recorded>(outcome);
}

/// It ends with the recording, not in the queue behind it.
Operation<Done> Session::stopRecording() {
  const auto& worker = core_->worker;
  const auto outcome = Worker::makeOutcome<Done>("stopRecording", worker->surroundings());
  const std::function<void(const detail::MaybeFailure&)> conclude =
      [weak = std::weak_ptr(worker), outcome](const detail::MaybeFailure& failure) {
        const auto held = weak.lock();
        if (!held) return;
        if (failure) return held->conclude(*outcome, Result<Done>(*failure));
        held->conclude(*outcome, Result<Done>(Done{}));
      };
  const bool isClosed = worker->isClosed();
  const auto recording = isClosed ? nullptr : worker->findRecording();
  if (!recording) {
    conclude(isClosed ? detail::MaybeFailure(detail::interruptionFailure(Errc::closed)) : std::nullopt);
    return Operation<Done>(outcome);
  }
  Worker::stateOf(*outcome).begin(
      [conclude](Errc reason) { conclude(detail::interruptionFailure(reason)); },
      [conclude] {
        conclude(Failure(Errc::badArgument, "it was waited for on the thread that has to carry it out"));
      });
  recording->stop();
  worker->nudge();
  recording->sharedState()->afterEnd([conclude] { conclude(std::nullopt); });
  return Operation<Done>(outcome);
}

// ---- Firmware and frames of the host's own ----

Operation<Installed> Session::update(const std::filesystem::path& image, const Limits& limits) {
  return start<Installed>(core_->worker, "update", limits, std::nullopt,
                          [image, noted = noteVersionIn(core_->worker)](Conversation& recorder) {
                            return detail::update(recorder, image, noted);
                          });
}

Operation<Done> Session::transact(std::shared_ptr<Work> work, const Limits& limits) {
  return start<Done>(core_->worker, "transact", limits, std::nullopt,
                     [work = std::move(work)](Conversation& recorder) -> Result<Done> {
                       if (!work) return Failure(Errc::badArgument, "there is no work");
                       return detail::transact(recorder, *work);
                     });
}

// ---- Streams ----

Stream<Event> Session::events(std::size_t capacity) {
  auto channel = std::make_shared<detail::Channel<Event>>(capacity, core_->worker->surroundings());
  core_->worker->events().add(channel);
  return Stream<Event>(std::move(channel));
}

Stream<AudioPacket> Session::audio(std::size_t capacity) {
  auto channel = std::make_shared<detail::Channel<AudioPacket>>(capacity, core_->worker->surroundings());
  core_->worker->audio().add(channel);
  return Stream<AudioPacket>(std::move(channel));
}

}  // namespace kwtsdk::session
