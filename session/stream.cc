#include <utility>

#include "session/stream_channel.h"
#include "session/worker.h"

namespace kwtsdk::session {
namespace detail {

using internal::MutexLock;

template <class T>
Channel<T>::~Channel() {
  end();
}

template <class T>
Operation<std::optional<T>> Channel<T>::next(const Limits& limits) {
  const auto next = Worker::makeOutcome<std::optional<T>>("next", surroundings_);
  const auto interrupt = [weakNext = std::weak_ptr(next)](Errc reason) {
    const auto interrupted = weakNext.lock();
    if (!interrupted) return;
    Worker::end(*interrupted, Result<std::optional<T>>(interruptionFailure(reason)));
  };
  const auto onStuck = [weakNext = std::weak_ptr(next)] {
    const auto stuck = weakNext.lock();
    if (!stuck) return;
    Worker::end(*stuck, Result<std::optional<T>>(Failure(
                            Errc::badArgument, "next: it was waited for on the thread that feeds it.")));
  };
  OperationState& state = Worker::stateOf(*next);
  state.begin(interrupt, onStuck);
  state.watch(limits, limits.timeout());
  bool isSecond = false;
  {
    const MutexLock lock(mutex_);
    isSecond = next_ && !next_->done();
    if (!isSecond) next_ = next;
  }
  if (isSecond) {
    Worker::end(*next, Result<std::optional<T>>(
                           Failure(Errc::badArgument, "next: another one waits for this stream already.")));
  }
  serve();
  return Operation<std::optional<T>>(next);
}

/// Gives the element to whoever waits. One who was cancelled meanwhile gets none, and the element stays.
template <class T>
void Channel<T>::serve() {
  Next served;
  std::optional<T> element;
  {
    const MutexLock lock(mutex_);
    if (!next_ || (elements_.empty() && !hasEnded_)) return;
    served = std::exchange(next_, nullptr);
    if (!Worker::stateOf(*served).claimEnd()) return;
    if (!elements_.empty()) {
      element.emplace(std::move(elements_.front()));
      elements_.pop_front();
    }
  }
  Worker::give(*served, Result<std::optional<T>>(std::move(element)));
}

template <class T>
void Channel<T>::forEach(std::function<void(const T&)> callback) {
  auto stored = callback ? std::make_shared<std::function<void(const T&)>>(std::move(callback)) : nullptr;
  {
    const MutexLock lock(mutex_);
    forEach_.swap(stored);
  }
  postNext();
}

template <class T>
void Channel<T>::postNext() {
  {
    const MutexLock lock(mutex_);
    if (!forEach_ || elements_.empty() || std::exchange(isPosted_, true)) return;
  }
  try {
    surroundings_.callbacks->post([weak = this->weak_from_this()] {
      if (const auto self = weak.lock()) self->callBack();
    });
  } catch (...) {  // the next element may have the memory
    const MutexLock lock(mutex_);
    isPosted_ = false;
    throw;
  }
}

template <class T>
void Channel<T>::callBack() {
  std::optional<T> element;
  std::shared_ptr<std::function<void(const T&)>> callback;
  {
    const MutexLock lock(mutex_);
    isPosted_ = false;
    if (!forEach_ || elements_.empty()) return;
    callback = forEach_;
    element.emplace(std::move(elements_.front()));
    elements_.pop_front();
  }
  internal::guardedCall(surroundings_.log, "A host callback", [&] { (*callback)(*element); });
  postNext();
}

template <class T>
std::uint64_t Channel<T>::missed() const {
  const MutexLock lock(mutex_);
  return missed_;
}

template <class T>
void Channel<T>::push(const T& element) {
  {
    const MutexLock lock(mutex_);
    if (hasEnded_) return;
    if (elements_.size() == capacity_) {
      elements_.pop_front();
      ++missed_;
    }
    elements_.push_back(element);
  }
  serve();
  postNext();
}

template <class T>
void Channel<T>::end() {
  {
    const MutexLock lock(mutex_);
    hasEnded_ = true;
  }
  serve();
}

template class Channel<Event>;
template class Channel<AudioPacket>;

}  // namespace detail

template <class T>
Operation<std::optional<T>> Stream<T>::next(const Limits& limits) const {
  return channel_->next(limits);
}

template <class T>
void Stream<T>::forEach(std::function<void(const T&)> callback) const {
  channel_->forEach(std::move(callback));
}

template <class T>
std::uint64_t Stream<T>::missed() const noexcept {
  return channel_->missed();
}

template class Stream<Event>;
template class Stream<AudioPacket>;

}  // namespace kwtsdk::session
