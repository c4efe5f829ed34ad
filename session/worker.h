#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <kwtsdk/session/session.h>

#include "platform/threads/mutex.h"
#include "session/conversation.h"
#include "session/event_hub.h"
#include "session/job.h"
#include "session/kept_link.h"
#include "session/opening_end.h"

namespace kwtsdk::session::detail {

/// What a Session is made of: the queue of operations, the one thread that carries them out, and what it
/// knows.
class Worker : public std::enable_shared_from_this<Worker> {
 public:
  static std::shared_ptr<Worker> create(std::shared_ptr<Link> link, const Options& options);

  Worker(const std::shared_ptr<Link>& link, const Options& options);
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // ---- Any thread ----

  const Surroundings& surroundings() const { return surroundings_; }
  Hub<Event>& events() { return events_; }
  Hub<AudioPacket>& audio() { return audio_; }
  Session::Snapshot snapshot() const KWT_EXCLUDES(mutex_);

  void submit(const std::shared_ptr<Job>& job, const std::optional<Duration>& timeout) KWT_EXCLUDES(mutex_);

  /// The recording that runs, or else the first that waits; null: there is none.
  std::shared_ptr<Job> findRecording() const KWT_EXCLUDES(mutex_);
  void nudge() { inbox_->nudge(); }
  bool isClosed() const KWT_EXCLUDES(mutex_);

  void close() noexcept KWT_EXCLUDES(mutex_);

  /// Waits until the recorder has been left in order and all callbacks have run; false, without waiting,
  /// where this thread is one of them.
  bool join() noexcept;

  /// Signalled when it is gone, and the link with it.
  std::shared_ptr<Semaphore> gone() const { return gone_.semaphore; }

  /// An event that there is no memory for is lost.
  void publish(const Event& event) noexcept KWT_EXCLUDES(mutex_);
  void noteFirmware(const std::string& version) KWT_EXCLUDES(mutex_);

  // ---- The worker's thread ----

  using Jobs = std::list<std::shared_ptr<Job>>;  // which move from one to the other without memory

  /// The next query that waits, for a recording to let in; it is no longer in the queue then.
  Jobs takeLetIn() KWT_EXCLUDES(mutex_);
  bool hasLetIn() const KWT_EXCLUDES(mutex_);
  void putBack(Jobs& letIn) noexcept KWT_EXCLUDES(mutex_);

  // ---- Outcomes, which only this class may touch ----

  static OperationState& stateOf(const Operating& operating);
  static std::shared_ptr<OperationState> sharedStateOf(const Operating& operating);

  template <class T>
  static std::shared_ptr<Outcome<T>> makeOutcome(std::string name, const Surroundings& surroundings) {
    auto outcome = std::make_shared<Outcome<T>>();
    adopt(*outcome, std::make_shared<OperationState>(std::move(name), surroundings));
    return outcome;
  }

  /// False when it has ended already.
  template <class T>
  static bool end(Outcome<T>& outcome, Result<T> result) {
    OperationState& state = stateOf(outcome);
    if (!state.claimEnd()) return false;
    outcome.result_.emplace(std::move(result));
    state.publishEnd();
    return true;
  }

  /// In two parts: claimed under a lock, given outside it.
  template <class T>
  static void give(Outcome<T>& claimed, Result<T> result) {
    claimed.result_.emplace(std::move(result));
    stateOf(claimed).publishEnd();
  }

  /// The same for a Session's operation, whose end is an event and whose failure is logged.
  template <class T>
  void conclude(Outcome<T>& outcome, Result<T> result) {
    OperationState& state = stateOf(outcome);
    if (!state.claimEnd()) return;
    internal::guardedCall(log_, "The text of a failure", [&] {
      if (!result) result = named(state, result);
    });
    announce(state, result ? std::error_code() : std::error_code(result.error()),
             result ? nullptr : &result.error());
    give(outcome, std::move(result));
  }

 private:
  struct Farewell {
    explicit Farewell(std::shared_ptr<Semaphore> given) : semaphore(std::move(given)) {}
    ~Farewell() { semaphore->signal(); }
    Farewell(const Farewell&) = delete;
    Farewell& operator=(const Farewell&) = delete;
    const std::shared_ptr<Semaphore> semaphore;
  };

  template <class T>
  static Result<T> named(const OperationState& state, const Result<T>& result) {
    const Failure& error = result.error();
    const bool isSentence = error.text().ends_with('.');
    Failure failure(error.code(), state.name() + ": " + error.text() + (isSentence ? "" : "."),
                    error.effect(), error.cause());
    if (result.partial() == nullptr) return failure;
    return {std::move(failure), *result.partial()};
  }

  static void adopt(Operating& operating, std::shared_ptr<OperationState> state);
  void announce(const OperationState& state, std::error_code error, const Failure* failure) noexcept;

  bool isRunning(const Job& job) const KWT_EXCLUDES(mutex_);
  bool wake() noexcept KWT_EXCLUDES(mutex_);
  template <class Work>
  bool async(Work work) noexcept {
    return thread_ &&
           internal::guardedCall(log_, "The thread of a session", [&] { thread_->async(std::move(work)); });
  }
  void pump() KWT_EXCLUDES(mutex_);
  std::shared_ptr<Job> takeNext() KWT_EXCLUDES(mutex_);
  void carryOut(Job& job) noexcept;
  void failForeign(Job& job, const char* what) noexcept;
  template <class Work>
  void onWorker(const Work& work) noexcept;
  void rest() KWT_EXCLUDES(mutex_);
  void endIdleLink();
  void interrupted(const std::shared_ptr<Job>& job, Errc reason) KWT_EXCLUDES(mutex_);

  const Farewell gone_;  // the first member, and so the last to go
  const std::shared_ptr<Semaphore> ended_;
  const internal::Logger log_;
  Surroundings surroundings_;
  Hub<Event> events_;
  Hub<AudioPacket> audio_;
  const std::shared_ptr<Inbox> inbox_;
  const std::shared_ptr<Connection> connection_;
  const std::shared_ptr<OpeningEnd> openingEnd_;
  Conversation conversation_;  // the worker's thread alone
  std::shared_ptr<KeptLink> kept_;

  mutable internal::Mutex mutex_;
  Jobs queue_ KWT_GUARDED_BY(mutex_);
  std::shared_ptr<Job> running_ KWT_GUARDED_BY(mutex_);
  bool isPumping_ KWT_GUARDED_BY(mutex_) = false;
  bool isClosed_ KWT_GUARDED_BY(mutex_) = false;
  std::optional<std::uint64_t> battery_ KWT_GUARDED_BY(mutex_);
  std::string firmware_ KWT_GUARDED_BY(mutex_);

  std::shared_ptr<SerialQueue> thread_;  // none where there was none to be had
};

}  // namespace kwtsdk::session::detail
