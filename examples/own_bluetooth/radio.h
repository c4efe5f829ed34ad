// Stands for the Bluetooth stack of a platform: nothing waits, and what happened is told on threads of the
// stack's own. In range is the simulated recorder of a folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/simulated_recorder.h>

class Radio {
 public:
  using Data = std::vector<std::uint8_t>;
  struct Attribute {
    std::string uuid;
    bool writable, notifies;
  };

  // Set before connect(). One thread, in the order in which things happened.
  std::function<void(const std::string& uuid, bool success)> onWritten;
  std::function<void(const std::string& uuid, const Data& data)> onNotified;
  std::function<void()> onDisconnected;

  explicit Radio(const std::filesystem::path& store)
      : link_(kwtsdk::sim::openSimulatedRecorder(kwtsdk::threadScheduler(), store).link) {
    link_->disconnect();
    link_->drain();  // of this end nobody is told
    link_->setEvents([this](auto&&, auto&& target,
                            auto&& error) { onWritten(target->UUID().toString(), !error.has_value()); },
                     [this](auto&&, auto&& source, auto&&) {
                       onNotified(source->UUID().toString(), source->value().value());
                     });
    link_->setOnDisconnect([this] { onDisconnected(); });
  }

  void connect(std::function<void(bool success)> onEnd) {
    {
      const std::lock_guard lock(mutex_);
      connecting_ = true;
    }
    connector_->async([this, onEnd = std::move(onEnd)] { onEnd(makeConnection()); });
  }
  void disconnect() {  // or no longer connect
    const std::lock_guard lock(mutex_);
    connecting_ = false;
    link_->disconnect();
  }

  bool isConnected() const { return link_->peripheral()->state() == kwtsdk::PeripheralState::connected; }
  std::size_t mtu() const {
    return link_->peripheral()->maximumWriteValueLengthForType(kwtsdk::WriteType::withoutResponse) + 3;
  }
  std::vector<Attribute> discover() const {
    namespace property = kwtsdk::characteristic_property;
    std::vector<Attribute> found;
    for (const auto& each : link_->characteristics()) {
      found.push_back({each->UUID().toString(), (each->properties() & property::write) != 0,
                       (each->properties() & property::notify) != 0});
    }
    return found;
  }

  void subscribe(const std::string& uuid, bool on) {
    link_->peripheral()->setNotifyValue(on, link_->characteristic(uuid));
  }
  void write(const std::string& uuid, const Data& data) {
    link_->peripheral()->writeValue(data, link_->characteristic(uuid), kwtsdk::WriteType::withResponse);
  }

 private:
  bool makeConnection() {
    const std::lock_guard lock(mutex_);
    if (!std::exchange(connecting_, false)) return false;
    link_->connect();
    return true;
  }

  std::mutex mutex_;
  bool connecting_ = false;
  const std::shared_ptr<kwtsdk::sim::SimulatedLink> link_;
  const std::shared_ptr<kwtsdk::SerialQueue> connector_ = kwtsdk::threadScheduler()->serialQueue("radio");
};
