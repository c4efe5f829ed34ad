#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <kwtsdk/export.h>
#include <kwtsdk/scheduler.h>

namespace kwtsdk::session {

/// A plain value: copying it costs nothing.
struct KWTSDK_EXPORT ProgressReport {
  enum class Stage : std::uint8_t {
    queued,      // other operations come first
    connecting,  // for the first time or again
    asking,
    transferring,
    verifying,  // what arrived, a file that is there, or by a second download
    deleting,
    recording,  // `done` is what is in the file
    stopping,
    installing,  // the recorder has accepted the image
    over
  };
  Stage stage = Stage::queued;
  std::uint64_t done = 0, total = 0;  // bytes; a total of 0 is not known. May go back
  std::uint32_t item = 0, items = 0;  // the which of how many recordings, from 1
  Duration elapsed{0};                // since the operation began
  std::optional<Duration> left;       // guessed from the last seconds
  double bytesPerSecond = 0;          // over the last seconds

  /// "3 of 7  45 %  1.2 of 2.7 MB  9.8 kB/s  2:31 left"
  std::string text() const;
};

}  // namespace kwtsdk::session
