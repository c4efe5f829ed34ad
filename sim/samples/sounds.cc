#include "sim/samples/sounds.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "sim/byte_order.h"

namespace kwtsdk::sim {

// ---- Tones ----

namespace {

constexpr double kLoudness = 12000;

/// Samples of `seconds`; `wave` gives -1 to 1 at a time in seconds. Both ends fade, so that none clicks.
template <class Wave>
Samples sound(double seconds, Wave wave) {
  constexpr double fade = 0.02;
  Samples samples(static_cast<std::size_t>(seconds * kSampleRate));
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double time = static_cast<double>(i) / kSampleRate;
    const double envelope = std::min({1.0, time / fade, (seconds - time) / fade});
    samples[i] = static_cast<std::int16_t>(std::lround(kLoudness * envelope * wave(time)));
  }
  return samples;
}

double sine(double cycles) { return std::sin(2 * std::numbers::pi * cycles); }

}  // namespace

Samples melody() {
  constexpr std::array<double, 8> scale{261.63, 293.66, 329.63, 349.23, 392.00, 440.00, 493.88, 523.25};
  constexpr std::array<std::size_t, 24> notes{0, 1, 2, 3, 4, 4, 5, 5, 4, 7, 6, 5,
                                              4, 3, 3, 3, 2, 2, 1, 4, 2, 1, 0, 0};
  Samples samples;
  for (const std::size_t note : notes) {
    const Samples tone = sound(0.5, [&](double time) {
      return 0.7 * sine(scale[note] * time) + 0.3 * sine(2 * scale[note] * time);
    });
    samples.insert(samples.end(), tone.begin(), tone.end());
  }
  return samples;
}

Samples chord() {
  return sound(
      5, [](double time) { return (sine(220.00 * time) + sine(277.18 * time) + sine(329.63 * time)) / 3; });
}

Samples sweep() {
  constexpr double seconds = 20, lowest = 100, highest = 6000;
  const double growth = std::log(highest / lowest) / seconds;
  return sound(seconds, [growth](double time) { return sine(lowest * std::expm1(growth * time) / growth); });
}

// ---- WAV files ----

namespace {

constexpr std::size_t kSampleSize = 2;

struct Format {
  static constexpr std::size_t kLeastSize = 16,
                               kSize = 26;  // of the chunk: in all, up to the sub-format's tag
  static constexpr unsigned kPcm = 1, kFloat = 3, kExtensible = 0xFFFE;

  unsigned tag = 0, channels = 0, bits = 0;
  std::uint32_t sampleRate = 0;

  bool readable() const {
    return tag == kPcm && bits == 8 * kSampleSize && (channels == 1 || channels == 2) &&
           std::ranges::find(kOpusSampleRates, static_cast<int>(sampleRate)) != kOpusSampleRates.end();
  }
  std::string text() const {
    std::string kind = "encoded sound (format " + std::to_string(tag) + ")";
    if (tag == kPcm) kind = std::to_string(bits) + "-bit PCM";
    if (tag == kFloat) kind = std::to_string(bits) + "-bit floating point";
    return kind.append(", ")
        .append(std::to_string(channels))
        .append(channels == 1 ? " channel, " : " channels, ")
        .append(std::to_string(sampleRate))
        .append(" Hz");
  }
};

class WavReader {
 public:
  explicit WavReader(const std::filesystem::path& path) : path_(path.string()) {
    std::error_code failure;
    const bool isFile = std::filesystem::is_regular_file(path, failure);  // a pipe might never answer
    if (isFile) file_.open(path, std::ios::binary);
    if (file_.is_open()) return;
    const std::string reason = failure  ? failure.message()
                               : isFile ? std::strerror(errno)
                                        : "not a regular file";
    throw std::runtime_error(path_ + " cannot be read (" + reason + "): name a WAV file that you may read");
  }

  WavSound read() {
    std::array<std::uint8_t, 12> head{};
    if (fill(head) < head.size() || !startsWith(head, "RIFF") ||
        !startsWith(std::span(head).subspan(8), "WAVE")) {
      fail("is no WAV file");
    }
    const std::uint32_t size = findSound();
    if (!format_.readable()) {
      fail("holds " + format_.text() +
           "; a microphone takes 16-bit PCM, 1 or 2 channels, at 8000, 12000, "
           "16000, 24000 or 48000 Hz");
    }
    WavSound sound{samples(size), static_cast<int>(format_.sampleRate)};
    if (sound.samples.empty()) fail("holds no sound");
    return sound;
  }

 private:
  static bool startsWith(std::span<const std::uint8_t> bytes, std::string_view text) {
    return std::equal(text.begin(), text.end(), bytes.begin());
  }

  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error(path_ + " " + what + ": make one with  sox " + path_ +
                             " -r 16000 -c 1 -b 16 OUT.wav");
  }

  /// The number of bytes read: fewer only at the end of the file.
  std::size_t fill(std::span<std::uint8_t> bytes) {
    file_.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<std::size_t>(file_.gcount());
  }

  /// Reads up to the sound itself; gives its length in bytes as the file says it.
  std::uint32_t findSound() {
    bool formatKnown = false;
    for (std::array<std::uint8_t, 8> head{}; fill(head) == head.size();) {
      const std::uint32_t size = little32(head, 4);
      if (startsWith(head, "data") && formatKnown) return size;
      std::size_t done = 0;
      if (startsWith(head, "fmt ")) {
        done = readFormat(size);
        formatKnown = true;
      }
      file_.ignore(static_cast<std::streamsize>(size + std::size_t{size % 2} - done));
    }
    fail("is damaged: it ends before its sound");
  }

  std::size_t readFormat(std::uint32_t size) {
    std::array<std::uint8_t, Format::kSize> bytes{};
    const std::size_t count = fill(std::span(bytes).first(std::min<std::size_t>(size, bytes.size())));
    if (count < Format::kLeastSize) fail("is damaged: its format is cut short");
    format_ = {little16(bytes, 0), little16(bytes, 2), little16(bytes, 14), little32(bytes, 4)};
    if (format_.tag == Format::kExtensible) format_.tag = little16(bytes, 24);
    return count;
  }

  Samples samples(std::uint32_t size) {
    Samples result;
    std::array<std::uint8_t, 16384> bytes{};
    const std::size_t step = format_.channels * kSampleSize;
    result.reserve(std::min<std::uintmax_t>(size, std::filesystem::file_size(path_)) / step);
    for (std::size_t left = size / step * step; left > 0;) {
      const std::size_t count = fill(std::span(bytes).first(std::min(left, bytes.size())));
      for (std::size_t at = 0; at + step <= count; at += step) result.push_back(mixed(bytes, at));
      left = count < bytes.size() ? 0 : left - count;
    }
    return result;
  }

  std::int16_t mixed(std::span<const std::uint8_t> bytes, std::size_t at) const {
    const int first = static_cast<std::int16_t>(little16(bytes, at));
    if (format_.channels == 1) return static_cast<std::int16_t>(first);
    return static_cast<std::int16_t>((first + static_cast<std::int16_t>(little16(bytes, at + 2))) / 2);
  }

  std::string path_;
  std::ifstream file_;
  Format format_;
};

}  // namespace

WavSound readWavFile(const std::filesystem::path& path) { return WavReader(path).read(); }

}  // namespace kwtsdk::sim
