#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/opus/ogg_pages.h"
#include "platform/opus/opus_header.h"

namespace kwtsdk::internal {

/// Samples of Ogg Opus are counted at 48 kHz.
constexpr int kOggSampleRate = 48000;

/// Takes an Ogg Opus file apart: its streams, one behind the other, their packets, and how much is lost
/// before each.
class OggPacketReader {
 public:
  enum class Kind { header, packet, lost };

  struct Item {
    Kind kind = Kind::packet;
    std::span<const std::uint8_t> packet{};  // valid until the next call
    std::uint64_t samples = 0;               // that are lost
    std::optional<std::int64_t> end{};       // of the stream's sound, counted from its beginning, once known
  };

  explicit OggPacketReader(InputFile& file) : file_(file), pages_(file) {}

  /// None at the end of the file. Throws ConversionFailure when the first header is of no use.
  std::optional<Item> next();

  /// Of the stream that the last item belongs to.
  const OpusHeader& header() const { return header_; }
  const std::string& title() const { return title_; }
  std::uint64_t damagedPages() const { return damaged_; }

 private:
  std::optional<Item> beginStream(const OggPage& page);
  std::optional<Item> takePage(const OggPage& page);
  std::optional<Item> takeEnd();
  bool noteLoss(const OggPage& page);
  void takePackets(const OggPage& page, bool afterLoss);
  bool takeTags();
  std::optional<Item> place(const OggPage& page, bool afterLoss);

  InputFile& file_;
  OggPageReader pages_;
  OpusHeader header_;
  std::string title_;
  std::uint64_t damaged_ = 0;

  // The stream.
  std::optional<std::uint32_t> stream_;
  std::uint32_t number_ = 0;  // of its next page
  bool needsTags_ = false, hasBegun_ = false, isLossPending_ = false, hasEnded_ = false, isOver_ = false;
  std::int64_t origin_ = 0, position_ = 0;  // where its sound begins; where its packets are
  std::optional<std::int64_t> end_;

  // The page's packets. The first may have begun on pages before.
  std::vector<std::span<const std::uint8_t>> packets_;
  std::size_t taken_ = 0;
  std::vector<std::uint8_t> joined_, unfinished_;
};

}  // namespace kwtsdk::internal
