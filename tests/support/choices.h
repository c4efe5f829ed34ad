#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

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

/// The command that repeats one seed of a campaign, in the tests that the filter names.
inline std::string repeating(std::uint64_t seed, const std::string& filter = "*") {
  std::string command = "repeat with: KWTSDK_SEED=";
  command.append(std::to_string(seed)).append(" ");
  command.append(std::filesystem::read_symlink("/proc/self/exe").string());
  return command.append(" --gtest_filter='").append(filter).append("'\n");
}

}  // namespace kwtsdk::testing
