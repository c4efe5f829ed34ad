#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "platform/opus/input_file.h"

namespace kwtsdk::internal {

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
  std::span<const std::uint8_t> pending() const;
  Item takeRecord(std::size_t size);
  Item skip(std::size_t size);

  InputFile& file_;
  const Kind kind_;
  std::vector<std::uint8_t> buffer_;
  std::size_t begin_ = 0, end_ = 0;
  bool atEnd_ = false;
};

}  // namespace kwtsdk::internal
