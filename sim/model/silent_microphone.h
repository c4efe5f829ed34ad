#pragma once

#include <kwtsdk/sim/microphone.h>

namespace kwtsdk::sim {

class SilentMicrophone : public Microphone {
 public:
  void start() override {}
  Bytes nextPacket() override;
};

}  // namespace kwtsdk::sim
