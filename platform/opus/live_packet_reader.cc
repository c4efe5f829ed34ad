#include "platform/opus/live_packet_reader.h"

#include <algorithm>

#include "platform/opus/live_record.h"

namespace kwtsdk::internal {

namespace {

constexpr std::size_t kBufferSize = 65536;
// A record and the header behind it: what one has to see to judge the record.
constexpr std::size_t kSight = live_record::kLongest + live_record::kHeaderSize;

}  // namespace

LivePacketReader::LivePacketReader(InputFile& file, Kind kind)
    : file_(file), kind_(kind), buffer_(kBufferSize) {}

std::optional<LivePacketReader::Item> LivePacketReader::next() {
  fill();
  const auto bytes = pending();
  if (bytes.empty()) return std::nullopt;
  if (live_record::isChained(bytes)) return takeRecord(live_record::completeSize(bytes));

  // Out of step: either this record is damaged, then another one may begin within what it claims to be, or
  // the next one is.
  const std::size_t size = live_record::completeSize(bytes);
  const std::size_t limit = atEnd_ ? bytes.size() : bytes.size() - kSight;
  const std::size_t other = live_record::find(bytes, 1, limit);
  if (size > 0 && other >= size) return takeRecord(size);
  const bool isCutOff = size == 0 && live_record::mayBegin(bytes) && other == bytes.size();
  if (isCutOff && kind_ == Kind::growing) return std::nullopt;
  return skip(std::max<std::size_t>(other, 1));
}

void LivePacketReader::fill() {
  if (end_ - begin_ >= 2 * kSight) return;  // any record in the first half can be judged
  std::copy(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_),
            buffer_.begin() + static_cast<std::ptrdiff_t>(end_), buffer_.begin());
  end_ -= begin_;
  begin_ = 0;
  end_ += file_.read(std::span(buffer_).subspan(end_));
  atEnd_ = end_ < buffer_.size();
}

std::span<const std::uint8_t> LivePacketReader::pending() const {
  return std::span(buffer_).subspan(begin_, end_ - begin_);
}

LivePacketReader::Item LivePacketReader::takeRecord(std::size_t size) {
  const auto record = pending().first(size);
  begin_ += size;
  return {record.subspan(live_record::kHeaderSize), false};
}

LivePacketReader::Item LivePacketReader::skip(std::size_t size) {
  begin_ += size;
  return {{}, true};
}

}  // namespace kwtsdk::internal
