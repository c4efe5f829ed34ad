#pragma once

#include <string>
#include <vector>

#include <kwtsdk/bytes.h>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::bench {

/// Opus packets of 20 ms of 16 kHz mono sound that costs a decoder what speech does: syllables of voiced and
/// unvoiced sound, and pauses. A minute of it, encoded as the recorder does.
const std::vector<Bytes>& speechPackets();

constexpr std::size_t kPacketsPerHour = 3600 * 50;

/// A kind of recording, of that speech over and over.
struct RecordingKind {
  const char* name;
  void (*write)(const std::string& path, std::size_t packets);
  int sampleRate;  // at which it is decoded
};
void writeLiveRecording(const std::string& path, std::size_t packets);
void writeOggOpus(const std::string& path, std::size_t packets);
inline constexpr RecordingKind kLive{"live", writeLiveRecording, 16000},
    kOgg{"Ogg Opus", writeOggOpus, 48000};

/// A recording in a folder of its own, and the place of its conversion.
struct RecordedFile {
  RecordedFile(const RecordingKind& kind, std::size_t packets)
      : input(folder.file("recording")), output(folder.file("converted")) {
    kind.write(input, packets);
  }

  testing::TemporaryFolder folder;
  const std::string input, output;
};

}  // namespace kwtsdk::bench
