#include "platform/opus/mp3_format.h"

#include <algorithm>
#include <string_view>

namespace kwtsdk::internal {

namespace {

constexpr int kLeastBitRate = 16;
constexpr std::size_t kSideInformationSize = 9;

constexpr auto kCrcTable = [] {
  constexpr unsigned polynomial = 0xA001;
  std::array<std::uint16_t, 256> table{};
  for (unsigned byte = 0; byte < table.size(); ++byte) {
    unsigned crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc & 1U) != 0 ? crc >> 1U ^ polynomial : crc >> 1U;
    table[byte] = static_cast<std::uint16_t>(crc);
  }
  return table;
}();

class Writer {
 public:
  void number(std::uint64_t value, int size) {
    for (int i = size - 1; i >= 0; --i) bytes_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
  void text(std::string_view letters, std::size_t size) {
    bytes_.insert(bytes_.end(), letters.begin(), letters.begin() + std::min(letters.size(), size));
    zeros(size - std::min(letters.size(), size));
  }
  void zeros(std::size_t count) { bytes_.insert(bytes_.end(), count, 0); }
  std::vector<std::uint8_t>& bytes() { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

/// Sync, MPEG-2 layer III without CRC; bit rate, 16 kHz; mono, original.
std::uint32_t frameHeader(int kilobitsPerSecond) {
  constexpr std::uint32_t fixed = 0xFFF308C4;
  const auto* const rate = std::find(kMpegBitRates.begin(), kMpegBitRates.end(), kilobitsPerSecond);
  return fixed | static_cast<std::uint32_t>(rate - kMpegBitRates.begin() + 1) << 12U;
}

std::uint64_t limited(int value, std::uint64_t largest) {
  return std::min(static_cast<std::uint64_t>(std::max(value, 0)), largest);
}

}  // namespace

std::uint16_t crc16(std::uint16_t crc, std::span<const std::uint8_t> bytes) {
  for (const std::uint8_t byte : bytes) {
    crc = static_cast<std::uint16_t>(crc >> 8U ^ kCrcTable[(crc ^ byte) & 0xFFU]);
  }
  return crc;
}

std::size_t InfoFrame::size() const {
  return mpegFrameSize(std::max(kilobitsPerSecond, kLeastBitRate), kMp3SampleRate);
}

std::vector<std::uint8_t> InfoFrame::bytes() const {
  constexpr std::uint32_t framesAndBytes = 3;
  constexpr std::uint8_t constantBitRate = 1;
  const std::uint64_t fileSize = size() + musicSize;
  Writer frame;
  frame.number(frameHeader(std::max(kilobitsPerSecond, kLeastBitRate)), 4);
  frame.zeros(kSideInformationSize);
  frame.text("Info", 4);
  frame.number(framesAndBytes, 4);
  frame.number(musicSize / mpegFrameSize(kilobitsPerSecond, kMp3SampleRate), 4);
  frame.number(fileSize, 4);
  frame.text(encoder, 9);
  frame.number(constantBitRate, 1);
  frame.number(limited(lowpass / 100, 255), 1);
  frame.zeros(9);  // peak, replay gain, flags of the encoder: unknown
  frame.number(limited(kilobitsPerSecond, 255), 1);
  frame.number(limited(delay, 4095) << 12U | limited(padding, 4095), 3);
  frame.zeros(4);  // unknown
  frame.number(fileSize, 4);
  frame.number(musicCrc, 2);
  frame.number(crc16(0, frame.bytes()), 2);
  frame.zeros(size() - frame.bytes().size());
  return frame.bytes();
}

}  // namespace kwtsdk::internal
