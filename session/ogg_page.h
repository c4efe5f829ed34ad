#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kwtsdk::session::detail {

/// One Ogg page (RFC 3533) as its bytes arrive; keeps its header alone. What the first six bytes have to be
/// is the caller's to test: what does not fit there need not be a page.
class OggPage {
 public:
  /// Bytes that show whether a page begins here, and whether a stream does: the letters, version and flags.
  static constexpr std::size_t kLead = 6;

  /// Takes no more than belong to the page; how many those were.
  std::size_t take(std::span<const std::uint8_t> bytes);

  /// Whether `byte` may be the next one of the lead.
  bool fitsLead(std::uint8_t byte, bool beginsStream) const;

  std::uint64_t size() const { return taken_; }  // so far
  bool isComplete() const { return taken_ >= kFixed && taken_ == headerSize() + bodySize_; }
  std::uint32_t crc() const { return crc_; }  // so far, of its bytes without the CRC that is sent

  // Once it is complete.
  bool checks() const { return crc_ == field(kCrcAt); }
  bool endsStream() const { return (header_[kFlagsAt] & kEndFlag) != 0; }
  std::uint32_t serial() const { return field(kSerialAt); }
  std::uint32_t sequence() const { return field(kSequenceAt); }
  std::uint32_t sentCrc() const { return field(kCrcAt); }

 private:
  static constexpr std::size_t kFlagsAt = 5, kSerialAt = 14, kSequenceAt = 18, kCrcAt = 22, kSegmentsAt = 26,
                               kFixed = 27, kGreatestHeader = kFixed + 255;
  static constexpr std::uint8_t kBeginFlag = 2, kEndFlag = 4;

  std::size_t headerSize() const { return taken_ < kFixed ? kFixed : kFixed + header_[kSegmentsAt]; }
  std::size_t takeHeader(std::span<const std::uint8_t> bytes);
  void headerEnds();
  std::uint32_t field(std::size_t at) const;

  std::array<std::uint8_t, kGreatestHeader> header_{};
  std::uint64_t taken_ = 0, bodySize_ = 0;
  std::uint32_t crc_ = 0;
};

}  // namespace kwtsdk::session::detail
