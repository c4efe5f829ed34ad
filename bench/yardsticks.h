#pragma once

// The least that passing something to other threads takes. Nothing of the library's own queues: a yardstick
// must not get slower together with what it measures.

#include <cstddef>
#include <deque>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "platform/threads/mutex.h"

namespace kwtsdk::bench {

/// One thread's letter box: the least that waking another thread takes.
class Mailbox {
 public:
  enum class Letter { none, token, end };

  void put(Letter letter) {
    {
      const internal::MutexLock lock(mutex_);
      letter_ = letter;
    }
    arrived_.notifyOne();
  }
  Letter take() {
    const internal::MutexLock lock(mutex_);
    while (letter_ == Letter::none) arrived_.wait(mutex_);
    return std::exchange(letter_, Letter::none);
  }

 private:
  internal::Mutex mutex_;
  internal::Condition arrived_;
  Letter letter_ KWT_GUARDED_BY(mutex_) = Letter::none;
};

/// A token goes from the caller through other threads, which do nothing, and back.
class BareTrip {
 public:
  explicit BareTrip(std::size_t others) : mailboxes_(others + 1) {
    for (std::size_t i = 0; i < others; ++i) {
      threads_.emplace_back([this, i] { forward(mailboxes_[i], mailboxes_[i + 1]); });
    }
  }
  ~BareTrip() {
    mailboxes_.front().put(Mailbox::Letter::end);
    for (auto& thread : threads_) thread.join();
  }
  BareTrip(const BareTrip&) = delete;
  BareTrip& operator=(const BareTrip&) = delete;

  void go() {
    mailboxes_.front().put(Mailbox::Letter::token);
    mailboxes_.back().take();
  }

 private:
  static void forward(Mailbox& from, Mailbox& to) {
    auto letter = Mailbox::Letter::none;
    while (letter != Mailbox::Letter::end) to.put(letter = from.take());
  }

  std::vector<Mailbox> mailboxes_;
  std::vector<std::thread> threads_;
};

/// A token goes to a second thread, on to a third, and back the same way.
class BareReturn {
 public:
  ~BareReturn() {
    middle_.put(Mailbox::Letter::end);
    worker_.join();
    end_.put(Mailbox::Letter::end);
    link_.join();
  }
  BareReturn() = default;
  BareReturn(const BareReturn&) = delete;
  BareReturn& operator=(const BareReturn&) = delete;

  void go() {
    middle_.put(Mailbox::Letter::token);
    own_.take();
  }

 private:
  Mailbox own_, middle_, end_;
  std::thread worker_{[this] {
    while (middle_.take() == Mailbox::Letter::token) {
      end_.put(Mailbox::Letter::token);
      middle_.take();
      own_.put(Mailbox::Letter::token);
    }
  }};
  std::thread link_{[this] {
    while (end_.take() == Mailbox::Letter::token) middle_.put(Mailbox::Letter::token);
  }};
};

/// Work that another thread does, in order.
class HandOff {
 public:
  HandOff() : thread_([this] { run(); }) {}
  ~HandOff() {
    push(nullptr);
    thread_.join();
  }
  HandOff(const HandOff&) = delete;
  HandOff& operator=(const HandOff&) = delete;

  void push(std::function<void()> work) {
    {
      const internal::MutexLock lock(mutex_);
      work_.push_back(std::move(work));
    }
    ready_.notifyOne();
  }

 private:
  void run() {
    while (const auto work = next()) work();
  }
  std::function<void()> next() {
    const internal::MutexLock lock(mutex_);
    while (work_.empty()) ready_.wait(mutex_);
    auto work = std::move(work_.front());
    work_.pop_front();
    return work;
  }

  internal::Mutex mutex_;
  internal::Condition ready_;
  std::deque<std::function<void()>> work_ KWT_GUARDED_BY(mutex_);
  std::thread thread_;
};

}  // namespace kwtsdk::bench
