#pragma once

#include <kwtsdk/sim/microphone.h>

namespace kwtsdk::campaign {

/// Packets that hold their number, from 0 in each recording.
class CountingMicrophone : public sim::Microphone {
 public:
  void start() override { next_ = 0; }
  Bytes nextPacket() override {
    const std::uint8_t number = next_++;
    return {number};
  }

 private:
  std::uint8_t next_ = 0;
};

}  // namespace kwtsdk::campaign
