#include "platform/bluez/loop.h"

#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <list>
#include <mutex>
#include <new>
#include <system_error>
#include <utility>

#include "platform/posix/files.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {
namespace {

thread_local const void* currentLoop = nullptr;

constexpr int kPauseMs = 10;  // until somebody may have given memory back

/// For poll(): rounded up, so that what is due has become due.
int millisecondsUntil(Duration due, Duration now) {
  constexpr Duration longest = std::chrono::hours(1);
  const Duration left = std::clamp(due - std::min(now, due), Duration::zero(), longest);
  return static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(left).count());
}

}  // namespace

class Loop::State {
 public:
  explicit State(std::shared_ptr<Scheduler> scheduler)
      : scheduler_(std::move(scheduler)), wakeUp_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

  /// Throws when it could not be made.
  void expectWhole() const {
    if (wakeUp_.get() < 0) throw std::system_error(EMFILE, std::generic_category(), "eventfd");
  }

  void post(Work work) {
    {
      const internal::MutexLock lock(mutex_);
      if (closed_) return;
      works_.push_back(std::move(work));
    }
    wake();
  }

  void add(const std::shared_ptr<Source>& source) {
    {
      const internal::MutexLock lock(mutex_);
      sources_.push_back(source);
    }
    wake();
  }

  void close() {
    std::list<Work> dropped;  // outlives the lock
    {
      const internal::MutexLock lock(mutex_);
      closed_ = true;
      dropped.swap(works_);
    }
    wake();
  }

  void wake() {
    {
      const internal::MutexLock lock(mutex_);
      woken_ = true;
      if (!std::exchange(sleeping_, false)) return;
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(wakeUp_.get(), &one, sizeof one);
  }

  bool isCurrent() const { return currentLoop == this; }

  void run() {
    currentLoop = this;
    for (bool goesOn = true, isStarved = false; goesOn;) {
      try {
        if (isStarved) tellStarved();
        isStarved = false;
        goesOn = work();
        if (goesOn) wait();
      } catch (const std::bad_alloc&) {  // what needed the memory is lost, and not the thread
        isStarved = true;
        ::poll(nullptr, 0, kPauseMs);
        goesOn = !isClosed();
      }
    }
    currentLoop = nullptr;
  }

 private:
  /// Needs no memory itself.
  void tellStarved() {
    for (std::size_t next = SIZE_MAX; next > 0;) {
      std::shared_ptr<Source> source;
      {
        const internal::MutexLock lock(mutex_);
        next = std::min(next, sources_.size());
        if (next > 0) source = sources_[--next].lock();
      }
      if (source) source->starved();
    }
  }

  /// Does what was left behind. False: closed.
  bool work() {
    for (;;) {
      Work next;
      {
        const internal::MutexLock lock(mutex_);
        if (closed_) return false;
        if (works_.empty()) return true;
        next = std::move(works_.front());
        works_.pop_front();
      }
      next();
    }
  }

  void wait() {
    const auto all = begin();
    Source::Wait wait;
    wait.polled.push_back({wakeUp_.get(), POLLIN, 0});
    std::vector<std::size_t> ends;
    ends.reserve(all.size());
    for (const auto& source : all) {
      source->prepare(wait);
      ends.push_back(wait.polled.size());
    }
    poll(wait);
    for (std::size_t i = 0, begin = 1; i < all.size() && !isClosed(); begin = ends[i++]) {
      all[i]->handle(std::span(wait.polled).subspan(begin, ends[i] - begin));
    }
  }

  /// Whoever wakes it from here on has it look again.
  std::vector<std::shared_ptr<Source>> begin() {
    std::vector<std::shared_ptr<Source>> there;
    const internal::MutexLock lock(mutex_);
    woken_ = false;
    there.reserve(sources_.size());
    std::erase_if(sources_, [&](const std::weak_ptr<Source>& weak) {
      if (auto source = weak.lock()) there.push_back(std::move(source));
      return weak.expired();
    });
    return there;
  }

  void poll(Source::Wait& wait) {
    const int longest = fallAsleep() ? millisecondsUntil(wait.due, scheduler_->now()) : 0;
    if (::poll(wait.polled.data(), wait.polled.size(), longest) < 0) {
      for (pollfd& each : wait.polled) each.revents = 0;
    }
    {
      const internal::MutexLock lock(mutex_);
      sleeping_ = false;
    }
    std::uint64_t count = 0;
    if (wait.polled.front().revents == 0) return;
    [[maybe_unused]] const auto taken = ::read(wakeUp_.get(), &count, sizeof count);
  }

  bool fallAsleep() {
    const internal::MutexLock lock(mutex_);
    return sleeping_ = !woken_ && works_.empty() && !closed_;
  }
  bool isClosed() {
    const internal::MutexLock lock(mutex_);
    return closed_;
  }

  const std::shared_ptr<Scheduler> scheduler_;
  const internal::Descriptor wakeUp_;
  internal::Mutex mutex_;
  std::list<Work> works_ KWT_GUARDED_BY(mutex_);
  std::vector<std::weak_ptr<Source>> sources_ KWT_GUARDED_BY(mutex_);
  bool woken_ KWT_GUARDED_BY(mutex_) = false;
  bool sleeping_ KWT_GUARDED_BY(mutex_) = false;
  bool closed_ KWT_GUARDED_BY(mutex_) = false;
};

Loop::Loop(std::shared_ptr<Scheduler> scheduler, std::string label)
    : scheduler_(std::move(scheduler)),
      label_(std::move(label)),
      state_(std::make_shared<State>(scheduler_)),
      starting_(scheduler_->recursiveLock(label_)) {}

Loop::~Loop() { close(); }

void Loop::start() {
  const std::unique_lock lock(*starting_);
  if (thread_ || isClosed_) return;
  state_->expectWhole();
  auto thread = scheduler_->serialQueue(label_);
  thread->async([state = state_] { state->run(); });
  thread_ = std::move(thread);
}

void Loop::post(Work work) {
  state_->post(std::move(work));
  try {
    start();
  } catch (const std::exception&) {  // whoever connects learns of it
  }
}

void Loop::add(const std::shared_ptr<Source>& source) { state_->add(source); }
void Loop::wake() { state_->wake(); }
bool Loop::isCurrent() const { return state_->isCurrent(); }

void Loop::close() {
  state_->close();
  std::shared_ptr<SerialQueue> ended;  // outlives the lock: its end waits for the thread
  const std::unique_lock lock(*starting_);
  isClosed_ = true;
  ended = std::exchange(thread_, nullptr);
}

}  // namespace kwtsdk::bluez
