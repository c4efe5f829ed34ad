#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/opus/read_window.h"

namespace kwtsdk::internal {

/// The record of a live recording: 50 01, the payload's length in 16 bits, one Opus packet.
namespace live_record {

constexpr std::size_t kHeaderSize = 4;
/// Six frames of 1275 bytes, 120 ms, and their lengths: more than that is no packet of 16 kHz sound.
constexpr std::size_t kLongestPacket = 7664;
constexpr std::size_t kLongest = kHeaderSize + kLongestPacket;

/// Whether `bytes` can be how a record begins; true as well for fewer bytes than that takes to see.
bool mayBegin(std::span<const std::uint8_t> bytes);

/// Size of the record that `bytes` begin with; 0 when they begin with none or with a part of one.
std::size_t completeSize(std::span<const std::uint8_t> bytes);

/// Whether `bytes` begin with a record that another one, or nothing, follows.
bool isChained(std::span<const std::uint8_t> bytes);

/// Where from `from` on, before `limit`, the first chained record with a well-formed packet begins; `limit`
/// when none does.
std::size_t find(std::span<const std::uint8_t> bytes, std::size_t from, std::size_t limit);

}  // namespace live_record

/// Takes a live recording apart. It may be damaged: what is no record is skipped up to the next one that is
/// in step with what follows it.
class LivePacketReader {
 public:
  /// Growing: the file is still written, so a record that is cut off at the end is waited for.
  enum class Kind { complete, growing };

  struct Item {
    std::span<const std::uint8_t> packet;  // valid until the next call
    bool isGap = false;                    // bytes that are no record; no packet then
  };

  LivePacketReader(InputFile& file, Kind kind);

  /// None at the end of the file as it is now.
  std::optional<Item> next();

 private:
  void fill();
  Item takeRecord(std::size_t size);
  Item skip(std::size_t size);

  ReadWindow window_;
  const Kind kind_;
};

}  // namespace kwtsdk::internal
