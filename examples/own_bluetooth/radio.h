// Stands for the Bluetooth stack of a platform: nothing waits, and what happened is told on the stack's own
// thread. A recorder that knows its battery level is in range.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <kwtsdk/scheduler.h>

class Radio {
 public:
  using Data = std::vector<std::uint8_t>;
  struct Attribute {
    std::string uuid;
    bool writable, notifies;
  };

  std::function<void(const std::string& uuid, bool success)> onWritten;
  std::function<void(const std::string& uuid, const Data& data)> onNotified;

  std::vector<Attribute> discover() const { return {{kWritten, true, false}, {kNotified, false, true}}; }
  bool isConnected() const { return true; }
  std::size_t mtu() const { return 247; }

  void subscribe(const std::string&, bool on) {
    thread_->async([this, on] { subscribed_ = on; });
  }
  void write(const std::string& uuid, const Data&) {
    thread_->async([this, uuid] {
      onWritten(uuid, true);
      if (subscribed_) onNotified(kNotified, batteryLevel());
    });
  }

 private:
  static constexpr const char* kWritten = "CA2A";
  static constexpr const char* kNotified = "C92A";

  static Data batteryLevel() {
    Data answer(32, 0);
    answer[24] = 87;
    return answer;
  }

  bool subscribed_ = false;
  const std::shared_ptr<kwtsdk::SerialQueue> thread_ = kwtsdk::threadScheduler()->serialQueue("radio");
};
