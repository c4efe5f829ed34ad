#include "platform/opus/ogg_packets.h"

#include <opus/opus.h>

#include <algorithm>
#include <utility>

namespace kwtsdk::internal {

namespace {

constexpr std::int64_t kMostLost = std::int64_t{3600} * kOggSampleRate;  // what is more is another counting

std::int64_t samplesOf(std::span<const std::uint8_t> packet) {
  if (packet.empty()) return 0;
  return std::max(
      0, opus_packet_get_nb_samples(packet.data(), static_cast<opus_int32>(packet.size()), kOggSampleRate));
}

}  // namespace

std::optional<OggPacketReader::Item> OggPacketReader::next() {
  for (;;) {
    if (taken_ < packets_.size()) {
      Item item;
      item.packet = packets_[taken_++];
      item.end = end_;
      return item;
    }
    if (isOver_) return std::nullopt;
    const auto page = pages_.next();
    auto item = !page ? takeEnd() : page->begins ? beginStream(*page) : takePage(*page);
    if (item) return item;
  }
}

std::optional<OggPacketReader::Item> OggPacketReader::beginStream(const OggPage& page) {
  if (pages_.hasSkipped()) damaged_ += std::max<std::size_t>(pages_.damagedPages(), 1);
  const bool isFirst = !stream_;
  if (!isFirst && !isOpusHeader(page.body)) return std::nullopt;
  stream_ = page.stream;
  hasEnded_ = true;
  try {
    header_ = OpusHeader::of(page.body, file_.path());
  } catch (const ConversionFailure&) {
    if (isFirst) throw;
    ++damaged_;
    return std::nullopt;
  }
  number_ = page.number + 1;
  needsTags_ = true;
  hasBegun_ = isLossPending_ = hasEnded_ = false;
  position_ = 0;
  end_.reset();
  unfinished_.clear();
  return Item{.kind = Kind::header};
}

std::optional<OggPacketReader::Item> OggPacketReader::takePage(const OggPage& page) {
  if (page.stream != stream_ || hasEnded_) {
    damaged_ += pages_.damagedPages();
    return std::nullopt;
  }
  isLossPending_ = noteLoss(page) || isLossPending_;
  number_ = page.number + 1;
  takePackets(page, isLossPending_);
  if (needsTags_ && takeTags()) return std::nullopt;
  hasEnded_ = page.ends;
  if (page.position < 0 || (packets_.empty() && !page.ends)) return std::nullopt;
  return place(page, std::exchange(isLossPending_, false));
}

/// Whether pages are missing before it.
bool OggPacketReader::noteLoss(const OggPage& page) {
  constexpr std::uint32_t most = 1U << 20U;  // what is more is another counting
  const std::uint32_t missing = page.number - number_;
  if (missing == 0 && !pages_.hasSkipped()) return false;
  damaged_ += std::max<std::uint64_t>(missing < most ? missing : 1, 1);
  return missing != 0;
}

void OggPacketReader::takePackets(const OggPage& page, bool afterLoss) {
  constexpr std::size_t longest = 1U << 20U;  // pictures in a comment header can be longer, and are not used
  packets_.clear();
  taken_ = 0;
  if (afterLoss || !page.continues) unfinished_.clear();
  bool isRest = page.continues && unfinished_.empty();  // of a packet that is lost
  std::size_t begin = 0, end = 0;
  for (const std::uint8_t size : page.lacing) {
    end += size;
    if (size == 255) continue;
    const auto part = page.body.subspan(begin, end - begin);
    begin = end;
    if (std::exchange(isRest, false)) continue;
    if (unfinished_.empty()) {
      packets_.push_back(part);
      continue;
    }
    joined_ = std::exchange(unfinished_, {});
    joined_.insert(joined_.end(), part.begin(), part.end());
    packets_.push_back(joined_);
  }
  const auto rest = page.body.subspan(begin);
  if (isRest || unfinished_.size() > longest) return unfinished_.clear();
  unfinished_.insert(unfinished_.end(), rest.begin(), rest.end());
}

/// Whether the page belongs to the comment header, which may be lost.
bool OggPacketReader::takeTags() {
  if (packets_.empty()) return true;
  needsTags_ = false;
  if (!isCommentHeader(packets_.front())) return false;
  if (title_.empty()) title_ = titleIn(packets_.front());
  packets_.clear();
  return true;
}

/// Where the page's packets are in time; an item when some is lost before.
std::optional<OggPacketReader::Item> OggPacketReader::place(const OggPage& page, bool afterLoss) {
  std::int64_t length = 0;
  for (const auto& packet : packets_) length += samplesOf(packet);
  std::int64_t begin = page.position - length;
  // The last page's position is that of the sound's end, within its last packet.
  if (page.ends && !packets_.empty()) {
    const std::int64_t unit = std::max<std::int64_t>(samplesOf(packets_.back()), 1);
    const std::int64_t ahead = begin - position_;
    begin = afterLoss ? position_ + (ahead + unit - 1) / unit * unit : std::max(begin, position_);
  }
  if (!std::exchange(hasBegun_, true)) {
    origin_ = afterLoss ? 0 : std::max<std::int64_t>(begin, 0);
    position_ = origin_;
  }
  if (page.ends) end_ = page.position - origin_;
  const std::int64_t lost = begin - position_;
  const bool isLost = afterLoss && lost > 0 && lost <= kMostLost;
  position_ = isLost || !afterLoss ? position_ + (isLost ? lost : 0) + length : begin + length;
  if (!isLost) return std::nullopt;
  return Item{.kind = Kind::lost, .samples = static_cast<std::uint64_t>(lost)};
}

/// A last page that is damaged still tells how much sound is lost with it.
std::optional<OggPacketReader::Item> OggPacketReader::takeEnd() {
  isOver_ = true;
  if (hasEnded_ || !pages_.hasSkipped()) return std::nullopt;
  damaged_ += std::max<std::size_t>(pages_.damagedPages(), 1);
  const auto& last = pages_.lastDamaged();
  if (!last || last->stream != stream_ || last->number - number_ >= pages_.damagedPages())
    return std::nullopt;
  constexpr std::int64_t longestPage = 255 * 5760;
  const std::int64_t lost = last->position - position_;
  if (lost <= 0 || lost > longestPage * static_cast<std::int64_t>(pages_.damagedPages())) return std::nullopt;
  return Item{.kind = Kind::lost, .samples = static_cast<std::uint64_t>(lost)};
}

}  // namespace kwtsdk::internal
