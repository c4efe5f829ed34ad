#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include <kwtsdk/session/session.h>

#include "platform/threads/mutex.h"
#include "session/operation_state.h"

namespace kwtsdk::session::detail {

/// What waits between a Session and one reader of a stream.
template <class T>
class Channel : public std::enable_shared_from_this<Channel<T>> {
 public:
  Channel(std::size_t capacity, Surroundings surroundings)
      : capacity_(capacity == 0 ? 1 : capacity), surroundings_(std::move(surroundings)) {}
  ~Channel();
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  // ---- The reader ----

  Operation<std::optional<T>> next(const Limits& limits) KWT_EXCLUDES(mutex_);
  void forEach(std::function<void(const T&)> callback) KWT_EXCLUDES(mutex_);
  std::uint64_t missed() const KWT_EXCLUDES(mutex_);

  // ---- The Session ----

  void push(const T& element) KWT_EXCLUDES(mutex_);
  void end() KWT_EXCLUDES(mutex_);

 private:
  using Next = std::shared_ptr<Outcome<std::optional<T>>>;

  void interruptNext(const Next& next, Errc reason) KWT_EXCLUDES(mutex_);
  void serve() KWT_EXCLUDES(mutex_);
  void postNext() KWT_EXCLUDES(mutex_);
  void callBack() KWT_EXCLUDES(mutex_);

  const std::size_t capacity_;
  const Surroundings surroundings_;
  mutable internal::Mutex mutex_;
  std::deque<T> elements_ KWT_GUARDED_BY(mutex_);
  std::uint64_t missed_ KWT_GUARDED_BY(mutex_) = 0;
  Next next_ KWT_GUARDED_BY(mutex_);
  std::shared_ptr<std::function<void(const T&)>> forEach_ KWT_GUARDED_BY(mutex_);
  bool isPosted_ KWT_GUARDED_BY(mutex_) = false;
  bool hasEnded_ KWT_GUARDED_BY(mutex_) = false;
};

}  // namespace kwtsdk::session::detail
