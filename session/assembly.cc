#include "session/assembly.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace kwtsdk::session::detail {
namespace {

constexpr std::size_t kChunk = 65536;

bool beginsAsOgg(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view capture = "OggS";
  return std::equal(bytes.begin(),
                    bytes.begin() + static_cast<std::ptrdiff_t>(std::min(bytes.size(), capture.size())),
                    capture.begin(),
                    [](std::uint8_t byte, char letter) { return byte == static_cast<std::uint8_t>(letter); });
}

/// Not where two pieces meet, but there is more than one page.
bool holdsPage(std::span<const std::uint8_t> bytes) {
  constexpr std::array<std::uint8_t, 5> capture{'O', 'g', 'g', 'S', 0};
  return std::search(bytes.begin(), bytes.end(), capture.begin(), capture.end()) != bytes.end();
}

}  // namespace

MaybeFailure Assembly::resume() {
  std::vector<std::uint8_t> chunk(kChunk);
  while (check_.position() < part_->size() && check_.state() != PageCheck::State::failed) {
    const std::uint64_t left = part_->size() - check_.position();
    const auto bytes =
        std::span(chunk).first(static_cast<std::size_t>(std::min<std::uint64_t>(kChunk, left)));
    if (auto failure = part_->read(check_.position(), bytes)) return failure;
    check_.take(bytes);
  }
  check_.rewind();
  return std::nullopt;
}

/// On a new link the last page comes again: it shows that the recording is still the one.
void Assembly::begin(bool isNewLink) {
  if (mode_ != Mode::checking) return;
  check_.rewind();
  if (isNewLink && check_.whole() > 0) check_.stepBack();
  position_ = check_.whole();
}

Assembly::Verdict Assembly::take(std::span<const std::uint8_t> bytes) {
  switch (mode_) {
    case Mode::checking:
      return check(bytes);
    case Mode::storing:
      return store(bytes);
    default:
      return compare(bytes);
  }
}

Assembly::Verdict Assembly::check(std::span<const std::uint8_t> bytes) {
  if (position_ == 0 && !bytes.empty() && !beginsAsOgg(bytes)) {
    beginStoring(0);
    return store(bytes);
  }
  const bool isFailed = check_.take(bytes) == PageCheck::State::failed;
  // Whole pages in front of what failed are good.
  const std::uint64_t good = isFailed ? check_.whole() - std::min(check_.whole(), position_) : bytes.size();
  if (auto failure = write(bytes.first(static_cast<std::size_t>(good)))) return {Kind::failed, failure};
  return isFailed ? mendFailure() : Verdict{};
}

void Assembly::beginStoring(std::uint64_t from) {
  mode_ = Mode::storing;
  position_ = compareFrom_ = from;
  alike_ = 0;
  isDoubtful_ = false;
}

Assembly::Verdict Assembly::mendFailure() {
  if (check_.isOther()) {
    check_.restart();
    failedWith_.reset();
    return again();
  }
  const std::uint64_t print = check_.fingerprint();
  if (std::exchange(failedWith_, print) != print) return again();
  // It has it like that.
  failedWith_.reset();
  check_.rewind();
  beginStoring(check_.whole());
  return {Kind::again, std::nullopt};
}

/// From the last page that checks on, as if nothing had come behind it.
Assembly::Verdict Assembly::again() {
  check_.rewind();
  mode_ = Mode::checking;
  isDoubtful_ = false;
  position_ = check_.whole();
  if (auto failure = part_->truncate(position_)) return {Kind::failed, failure};
  return {Kind::again, std::nullopt};
}

/// One that lost its first packet looks like no Ogg, too; filler that came twice gives it its length.
Assembly::Verdict Assembly::store(std::span<const std::uint8_t> bytes) {
  isDoubtful_ = isDoubtful_ || (compareFrom_ == 0 && holdsPage(bytes));
  if (auto failure = write(bytes)) return {Kind::failed, failure};
  return {};
}

MaybeFailure Assembly::write(std::span<const std::uint8_t> bytes) {
  auto failure = part_->write(position_, bytes);
  position_ += bytes.size();
  return failure;
}

Assembly::Verdict Assembly::compare(std::span<const std::uint8_t> bytes) {
  std::array<std::uint8_t, 4096> stored{};
  while (!bytes.empty()) {
    const auto part = std::span(stored).first(std::min(bytes.size(), stored.size()));
    if (auto failure = part_->read(position_, part)) return {Kind::failed, failure};
    // One of the two did not arrive as it was sent; which of them is not known.
    if (!std::ranges::equal(part, bytes.first(part.size()))) return again();
    position_ += part.size();
    bytes = bytes.subspan(part.size());
  }
  return {};
}

/// What is overfull may have a packet twice, its end cut off: the same packet both times is no such rarity.
Assembly::Verdict Assembly::end(bool isOverfull) {
  if (position_ < total_) return again();
  isDoubtful_ = isDoubtful_ || isOverfull;
  if (mode_ == Mode::comparing && ++alike_ > (isDoubtful_ ? 1U : 0U)) {
    isChecked_ = check_.ended() && compareFrom_ == check_.whole();
    return {Kind::whole, std::nullopt};
  }
  if (mode_ == Mode::checking) {
    alike_ = 0;
    compareFrom_ = check_.whole();
    const bool isFiller = check_.state() == PageCheck::State::filler && check_.uniform();
    isChecked_ = compareFrom_ > 0 && (compareFrom_ == total_ || isFiller);
    if (isChecked_) return {Kind::whole, std::nullopt};
  }
  mode_ = Mode::comparing;
  position_ = compareFrom_;
  return {Kind::other, std::nullopt};
}

}  // namespace kwtsdk::session::detail
