#pragma once

#include <string>
#include <vector>

#include <kwtsdk/bytes.h>

namespace kwtsdk::bench {

/// Opus packets of 20 ms of 16 kHz mono sound that costs a decoder what speech does: syllables of voiced and
/// unvoiced sound, and pauses. A minute of it, encoded as the recorder does.
const std::vector<Bytes>& speechPackets();

constexpr std::size_t kPacketsPerHour = 3600 * 50;

/// Recordings of that speech over and over.
void writeLiveRecording(const std::string& path, std::size_t packets);
void writeOggOpus(const std::string& path, std::size_t packets);

}  // namespace kwtsdk::bench
