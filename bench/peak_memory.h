#pragma once

#include <fstream>
#include <string>

namespace kwtsdk::bench {

/// The peak of the process's memory in bytes, as Linux keeps it.
inline double peakMemory() {
  std::ifstream status("/proc/self/status");
  std::string word;
  double kibibytes = 0;
  while (status >> word) {
    if (word == "VmHWM:") status >> kibibytes;
  }
  return kibibytes * 1024;
}

/// What other benchmarks needed must not hide what this one needs. False when the system does not let it.
inline bool forgetPeak() {
  return static_cast<bool>(std::ofstream("/proc/self/clear_refs") << 5 << std::flush);
}

}  // namespace kwtsdk::bench
