#include "session/page_check.h"

#include <algorithm>

namespace kwtsdk::session::detail {

PageCheck::State PageCheck::take(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty() && state_ != State::failed) {
    const bool isLead = page_.size() < OggPage::kLead;
    const std::size_t used = state_ == State::filler ? takeFiller(bytes)
                             : isLead                ? takeLead(bytes.front())
                                                     : takePage(bytes);
    bytes = bytes.subspan(used);
  }
  return state_;
}

std::size_t PageCheck::takeLead(std::uint8_t byte) {
  ++position_;
  if (page_.fitsLead(byte, beginsStream())) return page_.take({&byte, 1});
  leadEnds(byte);
  return 1;
}

// No page begins here.
void PageCheck::leadEnds(std::uint8_t byte) {
  const bool isUniform = page_.size() == 0 && (byte == 0 || byte == 0xFF);
  if (repeats_ || whole_ == 0 || !(last_.endsStream || isUniform)) {
    return fail(static_cast<std::uint32_t>(page_.size()), byte);
  }
  state_ = State::filler;
  fill_ = byte;
  uniform_ = isUniform;
}

std::size_t PageCheck::takePage(std::span<const std::uint8_t> bytes) {
  const std::size_t used = page_.take(bytes);
  position_ += used;
  if (page_.isComplete()) pageEnds();
  return used;
}

void PageCheck::pageEnds() {
  const Page page{page_.serial(), page_.sequence(), page_.crc(), page_.size(), page_.endsStream()};
  const bool follows = beginsStream() || (page.serial == last_.serial && page.sequence == last_.sequence + 1);
  isOther_ = repeats_ && page_.checks() && page != last_;
  if (!page_.checks() || (repeats_ ? isOther_ : !follows)) return fail(page_.crc(), page_.sentCrc());
  lastPage_ = position_ - page.size;
  whole_ = position_;
  last_ = page;
  page_ = OggPage();
  repeats_ = false;
}

std::size_t PageCheck::takeFiller(std::span<const std::uint8_t> bytes) {
  const auto different = std::ranges::find_if(bytes, [this](std::uint8_t byte) { return byte != fill_; });
  uniform_ = uniform_ && different == bytes.end();
  if (uniform_ || last_.endsStream) {
    position_ += bytes.size();
    return bytes.size();
  }
  const auto used = static_cast<std::size_t>(different - bytes.begin()) + 1;
  position_ += used;
  fail(fill_, *different);
  return used;
}

void PageCheck::fail(std::uint32_t seen, std::uint32_t expected) {
  state_ = State::failed;
  constexpr std::uint64_t mixing = 0x9E3779B97F4A7C15;
  fingerprint_ = 0;
  for (const std::uint64_t part : {whole(), position_, std::uint64_t{seen} << 32 | expected}) {
    fingerprint_ = (fingerprint_ ^ part) * mixing;
    fingerprint_ ^= fingerprint_ >> 32;
  }
}

void PageCheck::stepBack() {
  repeats_ = whole_ > 0;
  goTo(lastPage_);
}

void PageCheck::goTo(std::uint64_t position) {
  position_ = position;
  state_ = State::pages;
  page_ = OggPage();
  uniform_ = true;
  isOther_ = false;
}

}  // namespace kwtsdk::session::detail
