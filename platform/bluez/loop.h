#pragma once

#include <poll.h>

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <kwtsdk/scheduler.h>

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

    /// There was no memory for something that was left behind or had come: it is lost, whosever it was. The
    /// source added last learns of it first; all do again when one throws std::bad_alloc itself.
    virtual void starved() = 0;
  };

  Loop(std::shared_ptr<Scheduler> scheduler, std::string label);
  ~Loop();  // close()
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  // ---- Any thread ----

  /// Starts the thread, unless it runs. Throws when there is none to be had.
  void start();

  /// Work must not throw anything but std::bad_alloc. Dropped once closed. Starts the thread, or leaves the
  /// work behind for it.
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
  const std::shared_ptr<Scheduler> scheduler_;
  const std::string label_;
  const std::shared_ptr<State> state_;
  const std::shared_ptr<RecursiveLock> starting_;  // held across a call of the scheduler
  std::shared_ptr<SerialQueue> thread_;
  bool isClosed_ = false;
};

}  // namespace kwtsdk::bluez
