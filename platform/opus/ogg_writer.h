#pragma once

#include <ogg/ogg.h>

#include <cstdint>
#include <span>
#include <vector>

#include "platform/opus/byte_sink.h"

namespace kwtsdk::internal {

/// Writes Opus packets of 16 kHz mono sound as Ogg Opus, one stream. Throws ConversionFailure.
class OggWriter {
 public:
  /// Writes the headers.
  explicit OggWriter(ByteSink& file);

  /// What is no packet stands for a lost one, which the player then conceals.
  void write(std::span<const std::uint8_t> packet);
  /// Ends the page: all but the last packet is in the file then.
  void settle();
  /// The last packet is the stream's end.
  void finish();

 private:
  /// An object of its own, which goes also when the headers cannot be written.
  struct Stream : ogg_stream_state {
    Stream();
    ~Stream() { ogg_stream_clear(this); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
  };

  void add(std::span<const std::uint8_t> packet, bool isLast);

  ByteSink& file_;
  Stream stream_;
  std::vector<std::uint8_t> held_;  // back, since only the last packet ends the stream
  std::int64_t position_ = 0, number_ = 0;
};

}  // namespace kwtsdk::internal
