#include "platform/opus/input_kind.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <vector>

#include "platform/opus/conversion_failure.h"
#include "platform/opus/live_record.h"

namespace kwtsdk::internal {

namespace {

using namespace std::string_view_literals;

struct Signature {
  std::string_view begin;
  std::size_t at;  // of `mark`
  std::string_view mark;
  const char* name;
};

constexpr std::array<Signature, 7> kOthers{{{"RIFF", 8, "WAVE", "RIFF/WAVE audio"},
                                            {"OggS", 0, "", "an Ogg file without Opus sound"},
                                            {"fLaC", 0, "", "FLAC audio"},
                                            {"ID3", 0, "", "MP3 audio"},
                                            {"\xff\xf3"sv, 0, "", "MP3 audio"},
                                            {"\xff\xfb"sv, 0, "", "MP3 audio"},
                                            {"", 4, "ftyp", "an MP4 or M4A file"}}};

bool isOggOpus(std::string_view head) {
  constexpr std::size_t segmentCountAt = 26;
  if (!head.starts_with("OggS") || head.size() <= segmentCountAt) return false;
  const std::size_t packetAt = segmentCountAt + 1 + static_cast<unsigned char>(head[segmentCountAt]);
  return head.size() > packetAt && head.substr(packetAt).starts_with("OpusHead");
}

std::string hexOf(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    (hex += ' ') += digits[value >> 4U];
    hex += digits[value & 15U];
  }
  return hex;
}

/// What the file is if it is no recording; null when it could be a damaged one.
const char* otherKind(std::string_view head) {
  if (head.empty()) return "empty";
  for (const Signature& other : kOthers) {
    if (head.starts_with(other.begin) && head.size() > other.at &&
        head.substr(other.at).starts_with(other.mark)) {
      return other.name;
    }
  }
  return nullptr;
}

bool isLiveRecording(std::span<const std::uint8_t> head) {
  if (head.size() >= live_record::kHeaderSize && live_record::mayBegin(head)) return true;
  // The beginning may be damaged; two records in step are no accident.
  return live_record::find(head, 0, head.size()) < head.size();
}

}  // namespace

opus::Source recognise(const InputFile& file) {
  std::vector<std::uint8_t> bytes(65536);
  bytes.resize(file.peek(bytes));
  const std::string_view head(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (isOggOpus(head)) return opus::Source::oggOpus;
  const char* other = otherKind(head);
  if (other == nullptr && isLiveRecording(bytes)) return opus::Source::liveRecording;
  constexpr std::size_t shown = 8;
  const std::string found =
      other == nullptr ? "no recording, it begins with the bytes" + hexOf(head.substr(0, shown)) : other;
  throw ConversionFailure(file.path() + " is " + found +
                          ": only Ogg Opus files and live recordings can be converted.");
}

}  // namespace kwtsdk::internal
