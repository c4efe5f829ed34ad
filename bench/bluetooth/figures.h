#pragma once

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

namespace kwtsdk::bench {

/// Wall clock, processor time and thread changes of this process since it was made.
class Effort {
 public:
  Effort() : began_(Clock::now()) { ::getrusage(RUSAGE_SELF, &before_); }

  double seconds() const { return std::chrono::duration<double>(Clock::now() - began_).count(); }
  double processorSeconds() const {
    const rusage now = usage();
    return secondsOf(now.ru_utime) + secondsOf(now.ru_stime) - secondsOf(before_.ru_utime) -
           secondsOf(before_.ru_stime);
  }
  /// How often a thread has begun to wait.
  double waits() const { return static_cast<double>(usage().ru_nvcsw - before_.ru_nvcsw); }

 private:
  using Clock = std::chrono::steady_clock;

  static rusage usage() {
    rusage now{};
    ::getrusage(RUSAGE_SELF, &now);
    return now;
  }
  static double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  }

  const Clock::time_point began_;
  rusage before_{};
};

/// What each client of the comparison tells, a line of "name value" for each figure.
inline void tell(const char* name, double value) { std::printf("%s %.10g\n", name, value); }

inline void tellRounds(const Effort& effort, int rounds) {
  tell("round_ms", effort.seconds() * 1e3 / rounds);
  tell("round_waits", effort.waits() / rounds);
}

inline void tellStream(const Effort& effort, std::size_t packets) {
  const auto count = static_cast<double>(packets);
  tell("packets", count);
  tell("packets_per_s", count / effort.seconds());
  tell("packet_us", effort.processorSeconds() * 1e6 / count);
  tell("packet_waits", effort.waits() / count);
}

/// Resident, in kB.
inline void tellMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) tell("kB", std::stod(line.substr(line.find(':') + 1)));
  }
}

}  // namespace kwtsdk::bench
