// What a host with a Bluetooth stack of its own brings: the stack as a session's Link. docs/session.md says
// what each member has to do, docs/bluetooth.md what a Peripheral has to.
#pragma once

#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <kwtsdk/gatt/peripheral.h>
#include <kwtsdk/session/link.h>

#include "radio.h"

class RadioPeripheral : public kwtsdk::Peripheral {
 public:
  explicit RadioPeripheral(Radio& radio) : radio_(radio) {}

  kwtsdk::PeripheralState state() const override {
    return radio_.isConnected() ? kwtsdk::PeripheralState::connected : kwtsdk::PeripheralState::disconnected;
  }
  void writeValue(const kwtsdk::Bytes& value, const std::shared_ptr<kwtsdk::Characteristic>& target,
                  kwtsdk::WriteType) override {
    radio_.write(target->UUID().toString(), value);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<kwtsdk::Characteristic>& target) override {
    radio_.subscribe(target->UUID().toString(), enabled);
  }
  std::size_t maximumWriteValueLengthForType(kwtsdk::WriteType) const override { return radio_.mtu() - 3; }

 private:
  Radio& radio_;
};

class RadioLink : public kwtsdk::session::Link {
 public:
  explicit RadioLink(const std::filesystem::path& store) : radio_(store) {
    peripheral_ = std::make_shared<RadioPeripheral>(radio_);
    radio_.onWritten = [this](const std::string& uuid, bool success) {
      events_.didWrite(peripheral_, known_.at(uuid),
                       success ? kwtsdk::MaybeError() : problem(1, "The write failed"));
    };
    radio_.onNotified = [this](const std::string& uuid, const Radio::Data& data) {
      known_.at(uuid)->setValue(data);
      events_.didUpdate(peripheral_, known_.at(uuid), std::nullopt);
    };
    radio_.onDisconnected = [this] { events_.didDisconnect(); };
  }

  void setEvents(Events events) override {
    events_.setEvents(std::move(events.didWrite), std::move(events.didUpdate));
    events_.setOnDisconnect(std::move(events.didDisconnect));
  }

  kwtsdk::MaybeError open() override {
    if (radio_.isConnected()) return std::nullopt;
    const auto connected = std::make_shared<std::promise<bool>>();
    radio_.connect([connected](bool success) { connected->set_value(success); });
    if (!connected->get_future().get()) return problem(2, "No connection could be made");
    discover();
    return std::nullopt;
  }
  void close() override { radio_.disconnect(); }

  std::shared_ptr<kwtsdk::Peripheral> peripheral() const override { return peripheral_; }
  std::vector<std::shared_ptr<kwtsdk::Characteristic>> characteristics() const override {
    std::vector<std::shared_ptr<kwtsdk::Characteristic>> all;
    for (const auto& [uuid, characteristic] : known_) all.push_back(characteristic);
    return all;
  }

 private:
  static kwtsdk::Error problem(std::int64_t code, const char* text) {
    return {"radio", code, {{"NSLocalizedDescription", text}}};
  }

  void discover() {
    namespace property = kwtsdk::characteristic_property;
    for (const auto& [uuid, writable, notifies] : radio_.discover()) {
      auto& characteristic = known_[uuid];  // the same object on every connection
      if (characteristic) continue;
      characteristic = std::make_shared<kwtsdk::gatt::ValueCharacteristic>(
          kwtsdk::Uuid::fromString(uuid).value(),
          (writable ? property::write : 0) | (notifies ? property::notify : 0));
    }
  }

  kwtsdk::gatt::EventForwarder events_;
  std::unordered_map<std::string, std::shared_ptr<kwtsdk::gatt::ValueCharacteristic>> known_;
  std::shared_ptr<kwtsdk::Peripheral> peripheral_;
  Radio radio_;  // ends first: its threads use the others
};
