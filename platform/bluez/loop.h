#pragma once

#include <poll.h>

#include <deque>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {

/// The adapter's thread: it waits for the bus, for descriptors and for what others leave behind for it, and
/// does one thing after the other. One thread for all of it, since each change of threads costs more than
/// what is done between two.
class Loop {
 public:
  /// Something that is waited for. The loop keeps it alive while it calls it.
  class Source {
   public:
    struct Wait {
      std::vector<pollfd> polled;
      Duration due = Duration::max();  // on the scheduler's clock
    };
    virtual ~Source() = default;

    /// Adds what it waits for.
    virtual void prepare(Wait& wait) = 0;

    /// After each wait, with what was polled of its own.
    virtual void handle(std::span<const pollfd> polled) = 0;
  };

  /// Where no thread can be had it does not run, and nothing that is posted is done.
  Loop(const std::shared_ptr<Scheduler>& scheduler, const std::string& label);
  ~Loop();  // close()
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  // ---- Any thread ----

  bool isRunning() const KWT_EXCLUDES(mutex_);

  /// What work throws, which is that there is no memory left, is lost. Dropped once closed.
  using Work = std::function<void()>;
  void post(Work work);

  /// Until it is gone.
  void add(const std::shared_ptr<Source>& source);

  /// Looks again at what the sources wait for.
  void wake();

  /// Whether this thread is the loop's.
  bool isCurrent() const;

  /// Drops what has not begun and waits for what runs, unless called by it.
  void close();

 private:
  // Shared with the thread, whose own work may be the end of the loop.
  class State;
  const std::shared_ptr<State> state_;
  mutable internal::Mutex mutex_;
  std::shared_ptr<SerialQueue> thread_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::bluez
