#pragma once

#include <cstdint>
#include <span>

#include "sim/virtual_time/random.h"

namespace kwtsdk::testing {

/// What decides a scenario: a fuzzer's bytes while there are any, then numbers from a seed.
class Choices {
 public:
  explicit Choices(std::uint64_t seed, std::span<const std::uint8_t>* bytes = nullptr)
      : seed_(seed), numbers_(seed), bytes_(bytes) {}

  /// The same bytes, and numbers from another seed.
  Choices with(std::uint64_t seed) const { return Choices(seed, bytes_); }
  std::uint64_t seed() const { return seed_; }

  /// 0 to bound - 1; bound must not be 0.
  std::uint64_t below(std::uint64_t bound) {
    if (bytes_ == nullptr || bytes_->empty()) return numbers_.below(bound);
    std::uint64_t number = 0;
    for (std::uint64_t left = bound - 1; left > 0 && !bytes_->empty(); left >>= 8U) {
      number = number << 8U | bytes_->front();
      *bytes_ = bytes_->subspan(1);
    }
    return number % bound;
  }

 private:
  const std::uint64_t seed_;
  sim::Random numbers_;
  std::span<const std::uint8_t>* const bytes_;
};

}  // namespace kwtsdk::testing
