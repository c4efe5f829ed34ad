#include "sim/model/silent_microphone.h"

namespace kwtsdk::sim {

Microphone::~Microphone() = default;

// CELT, wideband, one frame of 20 ms, mono; the first bit of the frame says that it is silent.
Bytes SilentMicrophone::nextPacket() { return {0xB8, 0xFF, 0xFE}; }

}  // namespace kwtsdk::sim
