#include <array>
#include <bit>
#include <string>
#include <string_view>
#include <vector>

#include "platform/opus/sound.h"

namespace kwtsdk::internal {

namespace {

static_assert(std::endian::native == std::endian::little, "the samples are written as they are in memory");

constexpr std::size_t kHeaderSize = 44;
constexpr std::size_t kSampleSize = sizeof(std::int16_t);

class Chunks {
 public:
  Chunks& text(std::string_view letters) {
    bytes_.insert(bytes_.end(), letters.begin(), letters.end());
    return *this;
  }
  Chunks& number(std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    return *this;
  }
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

std::vector<std::uint8_t> headerOf(std::uint64_t dataSize, std::uint64_t sizeBehind, int sampleRate,
                                   int channels) {
  constexpr std::uint64_t formatSize = 16, pcm = 1;
  const auto rate = static_cast<std::uint64_t>(sampleRate), width = static_cast<std::uint64_t>(channels);
  return Chunks()
      .text("RIFF")
      .number(dataSize + sizeBehind + kHeaderSize - 8, 4)
      .text("WAVEfmt ")
      .number(formatSize, 4)
      .number(pcm, 2)
      .number(width, 2)
      .number(rate, 4)
      .number(rate * width * kSampleSize, 4)
      .number(width * kSampleSize, 2)
      .number(8 * kSampleSize, 2)
      .text("data")
      .number(dataSize, 4)
      .bytes();
}

/// The chunk behind the sound that holds the title; empty without one.
std::vector<std::uint8_t> informationOf(const std::string& title) {
  if (title.empty()) return {};
  constexpr std::size_t heads = 12;               // "INFO", "INAM" and its size
  const std::size_t textSize = title.size() + 1;  // with its zero
  const std::size_t padding = textSize % 2;
  return Chunks()
      .text("LIST")
      .number(heads + textSize + padding, 4)
      .text("INFOINAM")
      .number(textSize, 4)
      .text(title)
      .number(0, static_cast<int>(1 + padding))
      .bytes();
}

class WavWriter : public SoundWriter {
 public:
  WavWriter(ByteSink& file, int sampleRate, int channels, const std::string& title, std::uint64_t largest);

  void write(std::span<const std::int16_t> samples) override;
  void settle() override;
  void finish() override;

 private:
  ByteSink& file_;
  const int sampleRate_, channels_;
  const std::string title_;
  const std::uint64_t largest_;
  std::uint64_t dataSize_ = 0;
};

WavWriter::WavWriter(ByteSink& file, int sampleRate, int channels, const std::string& title,
                     std::uint64_t largest)
    : file_(file), sampleRate_(sampleRate), channels_(channels), title_(title), largest_(largest) {
  file_.append(headerOf(0, 0, sampleRate_, channels_));
}

void WavWriter::write(std::span<const std::int16_t> samples) {
  const std::span bytes(reinterpret_cast<const std::uint8_t*>(samples.data()), samples.size_bytes());
  dataSize_ += bytes.size();
  if (dataSize_ + kHeaderSize > largest_) {
    throw ConversionFailure(file_.path() +
                            " would be larger than a WAV file can be (4 GiB): convert to MP3 instead.");
  }
  file_.append(bytes);
}

void WavWriter::settle() { file_.overwriteBeginning(headerOf(dataSize_, 0, sampleRate_, channels_)); }

void WavWriter::finish() {
  const auto information = informationOf(title_);
  file_.append(information);
  file_.overwriteBeginning(headerOf(dataSize_, information.size(), sampleRate_, channels_));
}

}  // namespace

std::unique_ptr<SoundWriter> openWavWriter(ByteSink& file, int sampleRate, int channels,
                                           const std::string& title, std::uint64_t largest) {
  return std::make_unique<WavWriter>(file, sampleRate, channels, title, largest);
}

}  // namespace kwtsdk::internal
