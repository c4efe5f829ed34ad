#include "session/known_format.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

namespace kwtsdk::session::detail {
namespace {

using Beginning = std::span<const std::uint8_t>;

struct Mark {
  std::string_view bytes;
  const char* format;
};

constexpr const char* kMp3 = "an MP3 file";
constexpr std::array<Mark, 11> kMarks{{{"OggS", "an Ogg file"},
                                       {"\x89PNG", "a PNG picture"},
                                       {"\xFF\xD8\xFF", "a JPEG picture"},
                                       {"%PDF-", "a PDF document"},
                                       {"RIFF", "a RIFF (WAV) file"},
                                       {"ID3", kMp3},
                                       {"\x7F"
                                        "ELF",
                                        "an ELF program"},
                                       {"\x1F\x8B\x08", "a gzip archive"},
                                       {"PK\x03\x04", "a zip archive"},
                                       {"PK\x05\x06", "a zip archive"},
                                       {"PK\x07\x08", "a zip archive"}}};

bool beginsWith(Beginning beginning, std::string_view mark) {
  if (beginning.size() < mark.size()) return false;
  for (std::size_t i = 0; i < mark.size(); ++i) {
    if (beginning[i] != static_cast<std::uint8_t>(mark[i])) return false;
  }
  return true;
}

/// An MPEG audio frame header.
struct MpegFrame {
  unsigned version, layer, sampleRate;  // as in the header
  std::size_t size;
};

// kbit/s for the header's numbers 1 to 14.
using BitRates = std::array<unsigned, 14>;
constexpr BitRates kFirstLayerI{32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
    kFirstLayerII{32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
    kFirstLayerIII{32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
    kLaterLayerI{32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
    kLaterOthers{8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
constexpr unsigned kVersion1 = 3, kNoVersion = 1, kLayerI = 3, kLayerII = 2, kLayerIII = 1, kNoLayer = 0;

const BitRates& bitRates(unsigned version, unsigned layer) {
  if (version != kVersion1) return layer == kLayerI ? kLaterLayerI : kLaterOthers;
  return layer == kLayerI ? kFirstLayerI : layer == kLayerII ? kFirstLayerII : kFirstLayerIII;
}

std::optional<MpegFrame> mpegFrame(Beginning bytes) {
  constexpr unsigned free = 0, noBitRate = 15, noSampleRate = 3;
  if (bytes.size() < 4 || bytes[0] != 0xFF || (bytes[1] & 0xE0U) != 0xE0U) return std::nullopt;
  const unsigned version = (bytes[1] >> 3U) & 3U, layer = (bytes[1] >> 1U) & 3U;
  const unsigned bitRate = bytes[2] >> 4U, sampleRate = (bytes[2] >> 2U) & 3U,
                 padding = (bytes[2] >> 1U) & 1U;
  if (version == kNoVersion || layer == kNoLayer || bitRate == free || bitRate == noBitRate ||
      sampleRate == noSampleRate) {
    return std::nullopt;
  }
  constexpr std::array<unsigned, 3> hertz{44100, 48000, 32000};
  const unsigned halvings = version == kVersion1 ? 0 : version == 2 ? 1 : 2;
  const unsigned bitsPerSecond = bitRates(version, layer)[bitRate - 1] * 1000;
  const unsigned rate = hertz[sampleRate] >> halvings;
  // Bytes for one bit a second at one sample a second: the samples of a frame / 8.
  const unsigned factor = layer == kLayerIII && version != kVersion1 ? 72 : 144;
  const unsigned size =
      layer == kLayerI ? (12 * bitsPerSecond / rate + padding) * 4 : factor * bitsPerSecond / rate + padding;
  return MpegFrame{version, layer, sampleRate, size};
}

// The mark alone has 11 bits; a second frame where the first one says makes sure.
bool isMpegAudio(Beginning beginning) {
  const auto first = mpegFrame(beginning);
  if (!first || first->size >= beginning.size()) return false;
  const auto second = mpegFrame(beginning.subspan(first->size));
  return second && second->version == first->version && second->layer == first->layer &&
         second->sampleRate == first->sampleRate;
}

/// How many bytes a character of UTF-8 has that begins so; 0 for none that a text has.
std::size_t utf8Length(std::uint8_t first) {
  constexpr std::string_view controls = "\t\n\f\r\x1B";
  if (first < 0x20) return controls.find(static_cast<char>(first)) == std::string_view::npos ? 0 : 1;
  if (first < 0x7F) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  return first >= 0xE0 && first < 0xF0 ? 3 : first >= 0xF0 && first < 0xF5 ? 4 : 0;
}

}  // namespace

bool isText(std::span<const std::uint8_t> beginning) {
  for (std::size_t i = 0; i < beginning.size();) {
    const std::size_t end = i + utf8Length(beginning[i]);
    if (end == i) return false;
    for (++i; i < std::min(end, beginning.size()); ++i) {
      if ((beginning[i] & 0xC0U) != 0x80U) return false;
    }
  }
  return !beginning.empty();
}

const char* knownFormat(Beginning beginning) {
  for (const Mark& mark : kMarks) {
    if (beginsWith(beginning, mark.bytes)) return mark.format;
  }
  return isMpegAudio(beginning) ? kMp3 : nullptr;
}

}  // namespace kwtsdk::session::detail
