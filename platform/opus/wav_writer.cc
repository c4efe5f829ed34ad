#include <array>
#include <bit>
#include <string_view>
#include <vector>

#include "platform/opus/sound.h"

namespace kwtsdk::internal {

namespace {

static_assert(std::endian::native == std::endian::little, "the samples are written as they are in memory");

constexpr std::size_t kHeaderSize = 44;
constexpr std::size_t kSampleSize = sizeof(std::int16_t);

class Header {
 public:
  Header& text(std::string_view letters) {
    bytes_.insert(bytes_.end(), letters.begin(), letters.end());
    return *this;
  }
  Header& number(std::uint64_t value, int size) {
    for (int i = 0; i < size; ++i) bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    return *this;
  }
  const std::vector<std::uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

std::vector<std::uint8_t> headerOf(std::uint64_t dataSize, int sampleRate, int channels) {
  constexpr std::uint64_t formatSize = 16, pcm = 1;
  const auto rate = static_cast<std::uint64_t>(sampleRate), width = static_cast<std::uint64_t>(channels);
  return Header()
      .text("RIFF")
      .number(dataSize + kHeaderSize - 8, 4)
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

class WavWriter : public SoundWriter {
 public:
  WavWriter(ConvertedFile& file, int sampleRate, int channels, std::uint64_t largest);

  void write(std::span<const std::int16_t> samples) override;
  void finish() override;

 private:
  ConvertedFile& file_;
  const int sampleRate_, channels_;
  const std::uint64_t largest_;
  std::uint64_t dataSize_ = 0;
};

WavWriter::WavWriter(ConvertedFile& file, int sampleRate, int channels, std::uint64_t largest)
    : file_(file), sampleRate_(sampleRate), channels_(channels), largest_(largest) {
  file_.append(headerOf(0, sampleRate_, channels_));
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

void WavWriter::finish() { file_.overwriteBeginning(headerOf(dataSize_, sampleRate_, channels_)); }

}  // namespace

std::unique_ptr<SoundWriter> openWavWriter(ConvertedFile& file, int sampleRate, int channels,
                                           std::uint64_t largest) {
  return std::make_unique<WavWriter>(file, sampleRate, channels, largest);
}

}  // namespace kwtsdk::internal
