#pragma once

#include <map>

#include "tests/support/sim_host.h"

namespace kwtsdk::testing {

/// A facade on virtual time and a device that answers by a table, on a thread of its own.
struct PlayedHost : FakeHost {
  explicit PlayedHost(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : FakeHost(virtualTime), scheduler(*virtualTime), link(scheduler.serialQueue("link")) {
    peripheral->onWrite = [this](const auto& characteristic) { answer(characteristic); };
  }
  ~PlayedHost() { link = nullptr; }
  PlayedHost(const PlayedHost&) = delete;
  PlayedHost& operator=(const PlayedHost&) = delete;

  void answer(const std::shared_ptr<Characteristic>& characteristic) {
    if (++writes == disconnectAt) peripheral->current = PeripheralState::disconnected;
    link->async([this, characteristic, opcode = peripheral->calls.back().substr(6, 2)] {
      acknowledge(characteristic);
      const auto reply = answers.find(opcode);
      if (reply != answers.end()) notify(firmware, reply->second);
    });
  }

  VirtualTimeScheduler& scheduler;
  std::shared_ptr<SerialQueue> link;
  std::map<std::string, std::string> answers;  // by the first byte of the request
  int writes = 0, disconnectAt = 0;
};

}  // namespace kwtsdk::testing
