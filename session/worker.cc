#include "session/worker.h"

#include <algorithm>
#include <chrono>
#include <new>

#include "platform/posix/platform_defaults.h"

namespace kwtsdk::session::detail {
namespace {

using internal::guardedCall, internal::MutexLock;

Options complete(Options options) {
  options.platform(internal::withDefaults(options.platform()));
  return options;
}

bool isLetIn(const std::shared_ptr<Job>& job) { return job->letIn() != nullptr && !job->state().done(); }

/// Where no thread can be had they run where they are posted.
std::shared_ptr<Callbacks> callbacksFor(const Options& options, const internal::Logger& log) {
  const auto& scheduler = options.platform().scheduler;
  std::shared_ptr<Callbacks> callbacks;
  guardedCall(log, "The thread of a session's callbacks",
              [&] { callbacks = Callbacks::create(scheduler, options.executor(), log); });
  if (callbacks) return callbacks;
  return Callbacks::create(
      scheduler, [](const std::function<void()>& work) { work(); }, log);
}

}  // namespace

std::shared_ptr<Worker> Worker::create(std::shared_ptr<Link> link, const Options& options) {
  auto worker = std::make_shared<Worker>(link, complete(options));
  const auto& around = worker->surroundings_;
  worker->kept_ = std::make_shared<KeptLink>(options.keepLink(), around.scheduler, around.alarm,
                                             [weak = std::weak_ptr(worker)] {
                                               if (const auto self = weak.lock()) self->endIdleLink();
                                             });
  // The link's thread must not be the last to hold the worker, and with it the link.
  worker->inbox_->setOnUnattended(
      [weak = std::weak_ptr(worker), thread = worker->thread_, log = worker->log_] {
        if (!thread) return;
        guardedCall(log, "The thread of a session", [&] {
          thread->async([weak] {
            if (const auto self = weak.lock()) self->onWorker([&] { self->conversation_.look(); });
          });
        });
      });
  return worker;
}

Worker::Worker(const std::shared_ptr<Link>& link, const Options& options)
    : gone_(options.platform().scheduler->semaphore("kwt.session.gone")),
      ended_(options.platform().scheduler->semaphore("kwt.session.end")),
      log_(options.platform().log),
      surroundings_{options.platform().scheduler, callbacksFor(options, log_),
                    std::make_shared<Alarm>(options.platform().scheduler, log_), log_, this},
      inbox_(std::make_shared<Inbox>(surroundings_.scheduler)),
      connection_(std::make_shared<Connection>(link, inbox_, log_,
                                               [this](LinkState state, const MaybeError& error) {
                                                 publish(event::LinkChanged{state, error});
                                               })),
      openingEnd_(std::make_shared<OpeningEnd>(connection_, surroundings_.scheduler, surroundings_.alarm)),
      conversation_(connection_, inbox_, surroundings_.scheduler,
                    [this](const Event& event) { publish(event); }) {
  guardedCall(log_, "The thread of a session", [this] {
    auto thread = surroundings_.scheduler->serialQueue("kwt.session");
    thread->async([] {});  // it runs from now on
    thread_ = std::move(thread);
  });
}

Worker::~Worker() { surroundings_.alarm->close(); }

// ---- The queue ----

void Worker::submit(const std::shared_ptr<Job>& job, const std::optional<Duration>& timeout) {
  const std::weak_ptr<Worker> weakSelf = weak_from_this();
  const std::weak_ptr<Job> weakJob = job;
  job->state().begin(
      [weakSelf, weakJob](Errc reason) {
        const auto self = weakSelf.lock();
        const auto interruptedJob = weakJob.lock();
        if (!interruptedJob) return;
        if (self) return self->interrupted(interruptedJob, reason);
        interruptedJob->interrupted(reason);
      },
      [weakJob] {
        const auto stuck = weakJob.lock();
        if (!stuck) return;
        stuck->failFor(Errc::badArgument, "it was waited for on the thread that has to carry it out");
      });
  job->state().watch(job->limits(), timeout);
  {
    const MutexLock lock(mutex_);
    if (!isClosed_) queue_.push_back(job);
  }
  if (isClosed()) {
    job->interrupted(Errc::closed);
  } else if (wake() && job->letIn() != nullptr) {
    inbox_->nudge();
  }
}

bool Worker::isClosed() const {
  const MutexLock lock(mutex_);
  return isClosed_;
}

bool Worker::wake() noexcept {
  {
    const MutexLock lock(mutex_);
    if (std::exchange(isPumping_, true)) return true;
  }
  if (async([self = shared_from_this()] { self->pump(); })) return true;
  Jobs stranded;  // also those of threads that relied on this one
  {
    const MutexLock lock(mutex_);
    isPumping_ = false;
    stranded.swap(queue_);
  }
  for (const auto& job : stranded) job->failFor(Errc::noResources, "no thread or no memory could be had");
  return false;
}

/// Whatever it throws: the thread goes on, with a link made anew.
template <class Work>
void Worker::onWorker(const Work& work) noexcept {
  const OnWorker here(this);
  inbox_->attend();
  if (!guardedCall(log_, "The worker of a session", work)) conversation_.distrustLink();
  inbox_->leave();
}

void Worker::pump() {
  onWorker([this] {
    kept_->use();
    while (const auto job = takeNext()) carryOut(*job);
    rest();
  });
}

std::shared_ptr<Job> Worker::takeNext() {
  Jobs ended;  // destroyed without the lock
  std::shared_ptr<Job> last;
  const MutexLock lock(mutex_);
  running_.swap(last);
  while (!queue_.empty()) {
    ended.splice(ended.end(), queue_, queue_.begin());
    if (!ended.back()->state().done()) return running_ = ended.back();
  }
  isPumping_ = false;
  return nullptr;
}

bool Worker::hasLetIn() const {
  const MutexLock lock(mutex_);
  return std::ranges::any_of(queue_, isLetIn);
}

Worker::Jobs Worker::takeLetIn() {
  Jobs taken;
  const MutexLock lock(mutex_);
  const auto found = std::ranges::find_if(queue_, isLetIn);
  if (found != queue_.end()) taken.splice(taken.end(), queue_, found);
  return taken;
}

void Worker::putBack(Jobs& letIn) noexcept {
  const auto job = letIn.front();
  {
    const MutexLock lock(mutex_);
    queue_.splice(queue_.begin(), letIn);
  }
  // What close() did meanwhile had no effect on it.
  if (isClosed()) job->state().interrupt(Errc::closed);
}

std::shared_ptr<Job> Worker::findRecording() const {
  const auto isOne = [](const auto& job) { return job && job->isRecording() && !job->state().done(); };
  const MutexLock lock(mutex_);
  if (isOne(running_)) return running_;
  const auto found = std::ranges::find_if(queue_, isOne);
  return found == queue_.end() ? nullptr : *found;
}

void Worker::failForeign(Job& job, const char* what) noexcept {
  conversation_.distrustLink();
  const Effect effect = conversation_.possibleEffect();
  const bool isTold = guardedCall(log_, "The text of a failure", [&] {
    job.fail({Errc::linkFailed, std::string("an exception came from outside (") + what + ")", effect});
  });
  if (!isTold) job.failFor(Errc::linkFailed, what, effect);
}

void Worker::carryOut(Job& job) noexcept {
  conversation_.begin(job.sharedState(), job.limits());
  try {
    job.run(conversation_);
  } catch (const std::bad_alloc&) {
    conversation_.distrustLink();
    job.failFor(Errc::noResources, "there was no memory left", conversation_.possibleEffect());
  } catch (const std::exception& exception) {
    failForeign(job, exception.what());
  } catch (...) {
    failForeign(job, "of no known kind");
  }
  conversation_.leaveOperation();
  if (kept_->isNever()) conversation_.endLink();
}

// ---- The link while nothing is to be done ----

void Worker::rest() {
  if (isClosed()) return conversation_.endLink();
  if (connection_->isOpen()) kept_->rest();
}

void Worker::endIdleLink() {
  async([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (!self || !self->kept_->isOver()) return;
    self->onWorker([&] { self->conversation_.endLink(); });
  });
}

// ---- Ends ----

void Worker::interrupted(const std::shared_ptr<Job>& job, Errc reason) {
  if (!isRunning(*job)) return job->interrupted(reason);
  inbox_->nudge();
  openingEnd_->demand(job);
}

bool Worker::isRunning(const Job& job) const {
  const MutexLock lock(mutex_);
  return running_.get() == &job;
}

void Worker::close() noexcept {
  Jobs waiting;
  std::shared_ptr<Job> running;
  {
    const MutexLock lock(mutex_);
    if (std::exchange(isClosed_, true)) return;
    waiting.swap(queue_);
    running = running_;
  }
  for (const auto& job : waiting) job->state().interrupt(Errc::closed);
  if (running) running->state().interrupt(Errc::closed);
  events_.close();
  audio_.close();
  wake();
}

bool Worker::join() noexcept {
  if (OnWorker::is(this) || surroundings_.callbacks->isInside()) return false;
  if (async([reached = ended_] { reached->signal(); })) ended_->wait(std::nullopt);
  surroundings_.callbacks->finish();
  return true;
}

// ---- What is known ----

void Worker::publish(const Event& event) noexcept {
  if (const auto* const seen = std::get_if<event::BatterySeen>(&event)) {
    const MutexLock lock(mutex_);
    battery_ = seen->level;
  }
  guardedCall(log_, "An event", [&] { events_.publish(event); });
}

void Worker::noteFirmware(const std::string& version) {
  const MutexLock lock(mutex_);
  firmware_ = version;
}

Session::Snapshot Worker::snapshot() const {
  Session::Snapshot snapshot;
  snapshot.link = connection_->state();
  const MutexLock lock(mutex_);
  snapshot.queued = static_cast<std::size_t>(
      std::ranges::count_if(queue_, [](const auto& job) { return !job->state().done(); }));
  if (running_ && !running_->state().done()) snapshot.running = running_->state().name();
  snapshot.battery = battery_;
  snapshot.firmware = firmware_;
  return snapshot;
}

void Worker::announce(const OperationState& state, std::error_code error, const Failure* failure) noexcept {
  if (failure != nullptr) log_.info("%@", failure->text());
  guardedCall(log_, "An event", [&] { publish(event::OperationEnded{state.name(), error}); });
}

}  // namespace kwtsdk::session::detail
