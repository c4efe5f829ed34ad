#include "platform/opus/opus_header.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace kwtsdk::internal {

namespace {

constexpr std::string_view kHeadMark = "OpusHead", kTagsMark = "OpusTags";

std::string_view textOf(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Takes numbers and texts from the front; beyond the end there is nothing.
class Fields {
 public:
  explicit Fields(std::string_view bytes) : bytes_(bytes) {}
  std::uint32_t number(std::size_t size) {
    std::uint32_t value = 0;
    const std::string_view digits = text(size);
    for (std::size_t i = digits.size(); i-- > 0;) value = value << 8U | static_cast<unsigned char>(digits[i]);
    return value;
  }
  std::string_view text(std::size_t size) {
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(taken.size());
    return taken;
  }
  bool isEmpty() const { return bytes_.empty(); }

 private:
  std::string_view bytes_;
};

/// What cannot be done with a header that is whole; empty when it can.
std::string unusual(std::uint32_t version, std::uint32_t channels, std::uint32_t family,
                    std::string_view mapping) {
  constexpr std::uint32_t firstIncompatible = 16;
  using namespace std::string_view_literals;
  if (version >= firstIncompatible) {
    return "is Ogg Opus of version " + std::to_string(version) + ", and only versions below 16 are known";
  }
  if (channels > 2)
    return "has " + std::to_string(channels) + " channels, and only mono and stereo can be converted";
  if (family > 1) {
    return "has the channel mapping family " + std::to_string(family) + ", and only 0 and 1 are known";
  }
  // Streams, how many of them are stereo, and which decoded channel each channel is.
  if (family == 1 && mapping != (channels == 1 ? "\1\0\0"sv : "\1\1\0\1"sv)) {
    return "has its channels in an unusual order or in streams of their own, which cannot be converted";
  }
  return "";
}

bool isTitle(std::string_view comment) {
  constexpr std::string_view name = "title=";
  return std::ranges::equal(comment.substr(0, name.size()), name, [](char given, char wanted) {
    return (given >= 'A' && given <= 'Z' ? given - 'A' + 'a' : given) == wanted;
  });
}

}  // namespace

ConversionFailure damagedHeaders(const std::string& path) {
  return ConversionFailure(path +
                           " is Ogg Opus, but its headers are damaged or incomplete: download it again.");
}

OpusHeader OpusHeader::of(std::span<const std::uint8_t> packet, const std::string& path) {
  constexpr std::size_t shortest = 19;
  Fields fields(textOf(packet));
  const bool isHead = fields.text(kHeadMark.size()) == kHeadMark;
  const std::uint32_t version = fields.number(1), channels = fields.number(1);
  OpusHeader header;
  header.channels = static_cast<int>(channels);
  header.preSkip = fields.number(2);
  fields.number(4);  // the sample rate before it was encoded
  header.gain = static_cast<std::int16_t>(fields.number(2));
  const std::uint32_t family = fields.number(1);
  if (!isHead || packet.size() < shortest || channels == 0) {
    throw damagedHeaders(path);
  }
  const std::string reason = unusual(version, channels, family, fields.text(2 + channels));
  if (!reason.empty()) {
    throw ConversionFailure(path + " " + reason +
                            ": make a usual mono or stereo file of it with another program.");
  }
  return header;
}

bool isOpusHeader(std::span<const std::uint8_t> packet) { return textOf(packet).starts_with(kHeadMark); }
bool isCommentHeader(std::span<const std::uint8_t> packet) { return textOf(packet).starts_with(kTagsMark); }

std::string titleIn(std::span<const std::uint8_t> packet) {
  constexpr std::size_t longest = 1000;
  Fields fields(textOf(packet));
  if (fields.text(kTagsMark.size()) != kTagsMark) return "";
  fields.text(fields.number(4));  // who made it
  for (std::uint32_t left = fields.number(4); left > 0 && !fields.isEmpty(); --left) {
    std::string_view comment = fields.text(fields.number(4));
    if (!isTitle(comment)) continue;
    comment.remove_prefix(comment.find('=') + 1);
    std::size_t size = std::min(comment.size(), longest);
    while (size < comment.size() && size > 0 && (static_cast<unsigned char>(comment[size]) & 0xC0U) == 0x80U)
      --size;
    return std::string(comment.substr(0, std::min(size, comment.find('\0'))));
  }
  return "";
}

}  // namespace kwtsdk::internal
