#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <span>
#include <string>

#include "platform/opus/byte_sink.h"
#include "platform/opus/input_file.h"
#include "platform/opus/live_packets.h"

namespace kwtsdk::internal {

/// The room that a read needs at least, in frames: the longest packet, 120 ms at 48 kHz.
constexpr std::size_t kLongestRead = 5760;

/// The sound of a recording, as interleaved 16-bit samples.
class AudioSource {
 public:
  virtual ~AudioSource() = default;
  virtual int sampleRate() const = 0;
  virtual int channels() const = 0;

  /// The next frames (samples of every channel), to the end of `room` but for less than a packet; 0 at the
  /// end of the recording.
  virtual std::size_t read(std::span<std::int16_t> room) = 0;

  /// Packets that did not decode and gaps in the data, so far.
  virtual std::uint64_t damagedPackets() const = 0;

  /// In UTF-8; empty when it has none.
  virtual std::string title() const { return {}; }
};

constexpr int kLiveSampleRate = 16000;

/// A live recording. What is lost the decoder conceals, so that the rest keeps its time.
std::unique_ptr<AudioSource> openLiveSource(InputFile& file, LivePacketReader::Kind kind);

/// An Ogg Opus file, read from front to back: one that ends early is read to where it ends. The time of what
/// is lost, which the pages around it tell, is concealed. Later streams of a chained file are brought to the
/// channels of the first. Throws ConversionFailure when that has a header that is damaged or unusual.
std::unique_ptr<AudioSource> openOggSource(InputFile& file);

/// Writes sound in one format. Throws ConversionFailure.
class SoundWriter {
 public:
  virtual ~SoundWriter() = default;
  /// Interleaved samples of whole frames.
  virtual void write(std::span<const std::int16_t> samples) = 0;
  /// Has the file's beginning tell of as much as there is.
  virtual void settle() = 0;
  /// After the last sample; the file is complete then.
  virtual void finish() = 0;
};

/// RIFF/WAVE, 16-bit PCM, of at most `largest` bytes: what the header's sizes can say.
std::unique_ptr<SoundWriter> openWavWriter(ByteSink& file, int sampleRate, int channels,
                                           const std::string& title = {},
                                           std::uint64_t largest = std::numeric_limits<std::uint32_t>::max());

/// MP3 at kMp3SampleRate, mono: stereo sound is mixed.
std::unique_ptr<SoundWriter> openMp3Writer(ByteSink& file, int sampleRate, int channels,
                                           int kilobitsPerSecond, const std::string& title = {});

}  // namespace kwtsdk::internal
