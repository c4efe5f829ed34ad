#include "session/sound.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "codec/hex.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::session::detail {
namespace {

constexpr std::size_t kHeadSize = 4, kLengthAt = 2;
constexpr std::string_view kStartedHead = "12800400", kEndHead = "0801";

}  // namespace

std::optional<SoundSign> soundSignOf(const Bytes& value) {
  using enum SoundSign;
  constexpr std::array<std::pair<std::string_view, SoundSign>, 8> heads{
      {{wire::kAudioPacket, sound},
       {wire::kRefusedInCall, refusedInCall},
       {wire::kRefusedNotInCall, refusedNotInCall},
       {kStartedHead, started},
       {wire::kStopped, stopped},
       {wire::kEndedByKey, endedByKey},
       {wire::kEndedByCall, endedByCall},
       {kEndHead, ended}}};
  const std::string text = internal::hexString(value);
  const auto found =
      std::ranges::find_if(heads, [&](const auto& head) { return text.starts_with(head.first); });
  return found == heads.end() ? std::nullopt : std::optional(found->second);
}

Bytes opusOf(const Bytes& packet) {
  if (packet.size() < kHeadSize) return {};
  const std::size_t length = packet[kLengthAt] | static_cast<std::size_t>(packet[kLengthAt + 1]) << 8U;
  const auto begin = packet.begin() + static_cast<std::ptrdiff_t>(kHeadSize);
  return {begin, begin + static_cast<std::ptrdiff_t>(std::min(length, packet.size() - kHeadSize))};
}

}  // namespace kwtsdk::session::detail
