#pragma once

#include <atomic>
#include <deque>

#include "tests/bluez/host.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::testing {

/// Compares what a host is told with what the recorder has sent on one connection: the same values in the
/// same order, one characteristic being in use at a time, and through descriptors each behind the
/// acknowledgement of the write before it. Over the bus they come as on the air, where it may be that fast.
class Witness {
 public:
  void watch(sim::RecorderModel& model) {
    model.setFrameFilter([this](auto, auto&) { return ++written_ > 0; });
    model.setReplyFilter([this](auto&, const Bytes& reply) {
      const internal::MutexLock lock(mutex_);
      // The end behind a stop's answer would meet whatever the host does next.
      if (internal::hexString(reply) == wire::kEnded) return std::optional<Bytes>();
      sent_.emplace_back(reply, isOverBus_ ? 0 : written_.load());
      return std::optional(reply);
    });
  }
  void begin(bool isOverBus) {
    const internal::MutexLock lock(mutex_);
    written_ = answered_ = 0;
    sent_.clear();
    isOverBus_ = isOverBus;
    isEarly_ = false;
  }
  void answered(bool isGood) {
    const internal::MutexLock lock(mutex_);
    EXPECT_FALSE(std::exchange(isEarly_, false) && isGood) << "a value has overtaken an acknowledgement";
    ++answered_;
  }
  void told(const Bytes& value) {
    const internal::MutexLock lock(mutex_);
    const std::string text = internal::hexString(value);
    ASSERT_FALSE(sent_.empty()) << text << " was never sent";
    EXPECT_EQ(text, internal::hexString(sent_.front().first)) << "lost or out of order";
    isEarly_ = isEarly_ || answered_ < sent_.front().second;
    sent_.pop_front();
    if (text.starts_with(wire::kAudioPacket)) ++sounds;
    if (text.starts_with(wire::kStopped)) ++stops;
  }

  std::atomic<int> sounds{0}, stops{0};

 private:
  std::atomic<int> written_{0}, answered_{0};
  internal::Mutex mutex_;
  bool isOverBus_ KWT_GUARDED_BY(mutex_) = false, isEarly_ KWT_GUARDED_BY(mutex_) = false;
  std::deque<std::pair<Bytes, int>> sent_ KWT_GUARDED_BY(mutex_);  // and the writes before it
};

}  // namespace kwtsdk::testing
