#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/opus/read_window.h"

namespace kwtsdk::internal {

/// A page of an Ogg file; valid until the next one is asked for.
struct OggPage {
  bool continues = false, begins = false, ends = false;  // a packet; the stream
  std::int64_t position = -1;                            // behind its last whole packet; -1: it has none
  std::uint32_t stream = 0, number = 0;
  std::span<const std::uint8_t> lacing, body;
};

/// Takes an Ogg file apart, which may be damaged: what is no page that checks is skipped.
class OggPageReader {
 public:
  explicit OggPageReader(InputFile& file);

  /// None at the end of the file.
  std::optional<OggPage> next();

  // What was skipped before the last one, or before the end.

  /// Whether there was anything but zeros, with which recorders fill up their blocks.
  bool hasSkipped() const { return hasSkipped_; }
  /// Damaged pages; of the file's last one only the beginning may be there.
  std::size_t damagedPages() const { return damaged_; }
  /// The last of them as its damaged header tells it, without lacing and body, unless it is cut off.
  const std::optional<OggPage>& lastDamaged() const { return lastDamaged_; }

 private:
  void fill();
  void skip(std::size_t size);
  void skipDamaged(std::size_t size);

  ReadWindow window_;
  bool hasSkipped_ = false;
  std::size_t damaged_ = 0;
  std::optional<OggPage> lastDamaged_;
};

}  // namespace kwtsdk::internal
