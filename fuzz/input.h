#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

#include <kwtsdk/bytes.h>

#include "tests/support/choices.h"

namespace kwtsdk::fuzz {

/// One input, read as decisions. Behind its end everything is 0, so that every prefix of an input is one.
class Input {
 public:
  explicit Input(std::span<const std::uint8_t> bytes) : left_(bytes) {}

  bool empty() const { return left_.empty(); }
  std::uint8_t byte() {
    if (left_.empty()) return 0;
    const std::uint8_t first = left_.front();
    left_ = left_.subspan(1);
    return first;
  }
  std::size_t below(std::size_t limit) { return byte() % limit; }
  bool chance(std::size_t oneIn) { return below(oneIn) == 1; }

  /// As many as a byte says, at most what is left.
  Bytes bytes() { return take(byte()); }
  Bytes take(std::size_t size) {
    const auto taken = left_.first(std::min(size, left_.size()));
    left_ = left_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }
  Bytes rest() { return take(left_.size()); }

  /// The first two bytes are a seed, the others decide as long as there are any.
  testing::Choices choices() {
    const std::uint64_t seed = byte() * 256U;
    return testing::Choices(seed + byte(), &left_);
  }
  std::string text() {
    const Bytes all = rest();
    return {all.begin(), all.end()};
  }

 private:
  std::span<const std::uint8_t> left_;
};

/// What a target promises of every input.
inline void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "fuzz: not so: %s\n", what);
  std::abort();
}

/// A target does with one input what it is about. Its name is its corpus' folder and what scripts/fuzz is
/// told.
struct Target {
  Target(const char* itsName, void (*itsBody)(Input&));
  const char* const name;
  void (*const body)(Input&);
};

}  // namespace kwtsdk::fuzz
