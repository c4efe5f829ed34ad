#pragma once

#include <ogg/ogg.h>
#include <opus/opus.h>

#include <functional>
#include <memory>
#include <numeric>

#include <kwtsdk/opus/conversion.h>

#include "codec/hex.h"
#include "sim/samples/sample_store.h"
#include "tests/support/temporary_folder.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::testing {

inline constexpr std::size_t kPacketFrames = 320;  // 20 ms at 16 kHz

/// What a record of a live recording begins with.
inline const std::string kMark = [] {
  const Bytes mark = internal::toData(wire::kAudioPacket);
  return std::string(mark.begin(), mark.end());
}();

/// Records of a live recording, of differing sizes.
inline std::vector<std::string> liveRecords(std::size_t count) {
  const std::unique_ptr<OpusEncoder, void (*)(OpusEncoder*)> encoder(
      opus_encoder_create(16000, 1, OPUS_APPLICATION_VOIP, nullptr), opus_encoder_destroy);
  static const sim::Samples sound = sim::melody();
  std::vector<std::string> records;
  for (std::size_t i = 0; i < count; ++i) {
    std::string packet(1275, '\0');
    const opus_int32 size = opus_encode(encoder.get(), sound.data() + i * kPacketFrames, kPacketFrames,
                                        reinterpret_cast<unsigned char*>(packet.data()), 1275);
    packet.resize(static_cast<std::size_t>(size));
    records.push_back(kMark + static_cast<char>(size) + static_cast<char>(size >> 8) + packet);
  }
  return records;
}

inline std::string joined(const std::vector<std::string>& records) {
  return std::accumulate(records.begin(), records.end(), std::string());
}

/// The bytes of an Ogg Opus file as long as so many packets.
inline std::string oggOpus(std::size_t packets, int serialNumber = 1) {
  const TemporaryFolder folder;
  sim::Samples sound = sim::melody();
  sound.resize(packets * kPacketFrames);
  sim::writeOpusFile(folder.file("o"), sound, serialNumber);
  return contentOf(folder.file("o"));
}

inline std::vector<std::string> pagesOf(const std::string& file) {
  std::vector<std::string> pages;
  for (std::size_t at = 0; at < file.size();) {
    const std::size_t next = std::min(file.find("OggS", at + 1), file.size());
    pages.push_back(file.substr(at, next - at));
    at = next;
  }
  return pages;
}

/// A page as `change` leaves it, with the CRC that is right then.
inline std::string changed(std::string page, const std::function<void(std::string&)>& change) {
  change(page);
  const auto headSize = 27 + static_cast<long>(static_cast<unsigned char>(page[26]));
  auto* const bytes = reinterpret_cast<unsigned char*>(page.data());
  ogg_page raw{bytes, headSize, bytes + headSize, static_cast<long>(page.size()) - headSize};
  ogg_page_checksum_set(&raw);
  return page;
}

/// Converts `content` in the folder's "in" into its "out".
inline opus::ConversionResult wavOf(const TemporaryFolder& folder, const std::string& content) {
  writeFile(folder.file("in"), content);
  return opus::convert(folder.file("in"), folder.file("out"), opus::Format::wav, 0, {});
}

inline std::size_t number(const std::string& bytes, std::size_t at, std::size_t size) {
  std::size_t value = 0;
  for (std::size_t i = size; i-- > 0;) value = value << 8U | static_cast<unsigned char>(bytes.at(at + i));
  return value;
}

/// Whether `wav` is 16-bit PCM of so many samples of each channel, with a header that says so.
inline bool isWav(const std::string& wav, int rate, std::size_t samples, std::size_t channels = 1) {
  const std::size_t data = 2 * channels * samples;
  return wav.size() == 44 + data && wav.starts_with("RIFF") && wav.substr(8, 8) == "WAVEfmt " &&
         number(wav, 4, 4) == wav.size() - 8 && number(wav, 20, 2) == 1 && number(wav, 22, 2) == channels &&
         number(wav, 24, 4) == static_cast<std::size_t>(rate) &&
         number(wav, 28, 4) == 2 * channels * number(wav, 24, 4) && number(wav, 32, 2) == 2 * channels &&
         number(wav, 34, 2) == 16 && number(wav, 40, 4) == data;
}

}  // namespace kwtsdk::testing
