#include <gtest/gtest.h>

#include <cstdlib>

#include <kwtsdk/sim/seed.h>

#include "tests/campaign/scenario.h"
#include "tests/support/choices.h"

namespace kwtsdk::campaign {
namespace {

constexpr std::uint64_t kParts = 4, kSeedsPerPart = 650;  // 20,800 in all

/// KWTSDK_SEEDS, where it is set, is how many each part tries: under a sanitizer each takes much longer.
std::uint64_t seedsPerPart() {
  const char* const asked = std::getenv("KWTSDK_SEEDS");
  return asked == nullptr ? kSeedsPerPart : std::strtoull(asked, nullptr, 10);
}

class Campaign : public ::testing::TestWithParam<std::tuple<Profile, std::uint64_t>> {};

TEST_P(Campaign, EveryOperationEndsAsRequired) {
  const auto& [profile, part] = GetParam();
  const bool one = std::getenv("KWTSDK_SEED") != nullptr;
  const std::uint64_t first = sim::seedFromEnvironment(1 + part * seedsPerPart());
  for (std::uint64_t seed = first; seed < first + (one ? 1 : seedsPerPart()); ++seed) {
    runScenario(Choices(seed), profile, testing::repeating(seed, std::string("*/") + profile.name + "0"));
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, Campaign,
                         ::testing::Combine(::testing::ValuesIn(kProfiles),
                                            ::testing::Range<std::uint64_t>(0, kParts)),
                         [](const auto& test) {
                           return std::get<0>(test.param).name + std::to_string(std::get<1>(test.param));
                         });

}  // namespace
}  // namespace kwtsdk::campaign
