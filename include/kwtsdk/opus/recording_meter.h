#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/export.h>

namespace kwtsdk::opus {

/// Follows a live recording while it is written: its length and its level. For one thread at a time.
class KWTSDK_EXPORT RecordingMeter {
 public:
  struct Reading {
    std::chrono::milliseconds recorded{0};  // since the beginning of the file
    std::uint64_t bytes = 0;                // read of the file so far
    std::optional<double> peak;  // dBFS of the sound that is new with this reading, -90.3 (silence) to 0
  };

  /// The file need not exist yet.
  explicit RecordingMeter(const std::string& path);
  ~RecordingMeter();
  RecordingMeter(const RecordingMeter&) = delete;
  RecordingMeter& operator=(const RecordingMeter&) = delete;

  /// Decodes what was appended since the last call; blocks for as long as that takes. Damage is skipped; of a
  /// file that is missing, cannot be read or holds something else there is nothing new. Throws nothing.
  Reading read() noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kwtsdk::opus
