#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <kwtsdk/session/session.h>

#include "platform/threads/mutex.h"
#include "session/stream_channel.h"

namespace kwtsdk::session::detail {

/// Everyone who follows one kind of elements.
template <class T>
class Hub {
 public:
  void add(const std::shared_ptr<Channel<T>>& channel) KWT_EXCLUDES(mutex_) {
    bool isClosed = false;
    {
      const internal::MutexLock lock(mutex_);
      std::erase_if(channels_, [](const auto& known) { return known.expired(); });
      isClosed = isClosed_;
      if (!isClosed) channels_.push_back(channel);
    }
    if (isClosed) channel->end();
  }

  void publish(const T& element) {
    for (const auto& channel : readers()) channel->push(element);
  }

  void close() noexcept KWT_EXCLUDES(mutex_) {
    std::vector<std::weak_ptr<Channel<T>>> channels;
    {
      const internal::MutexLock lock(mutex_);
      isClosed_ = true;
      channels.swap(channels_);
    }
    for (const auto& known : channels) {
      if (const auto channel = known.lock()) channel->end();
    }
  }

 private:
  using Readers = std::vector<std::shared_ptr<Channel<T>>>;

  Readers readers() const KWT_EXCLUDES(mutex_) {
    Readers readers;
    const internal::MutexLock lock(mutex_);
    for (const auto& known : channels_) {
      if (auto channel = known.lock()) readers.push_back(std::move(channel));
    }
    return readers;
  }

  mutable internal::Mutex mutex_;
  std::vector<std::weak_ptr<Channel<T>>> channels_ KWT_GUARDED_BY(mutex_);
  bool isClosed_ KWT_GUARDED_BY(mutex_) = false;
};

}  // namespace kwtsdk::session::detail
