#include "sim/samples/microphones.h"

/// What the simulated recorder looks for when it opens a folder. Throws as microphoneIn does.
extern "C" KWTSDK_EXPORT void kwtsdkListen(const std::filesystem::path* folder,
                                           std::shared_ptr<kwtsdk::sim::Microphone>* microphone) {
  *microphone = kwtsdk::sim::microphoneIn(*folder);
}
