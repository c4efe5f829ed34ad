#include <gtest/gtest.h>

#include <cstdlib>

#include <kwtsdk/sim/seed.h>

#include "tests/session_campaign/scenario.h"
#include "tests/support/choices.h"

namespace kwtsdk::session_campaign {
namespace {

constexpr std::uint64_t kSeeds = 20'000;

/// One, when one seed alone is asked for.
std::uint64_t parts() { return std::getenv("KWTSDK_SEED") != nullptr ? 1 : 8; }

class SessionCampaign : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(SessionCampaign, EveryOperationEndsInTimeAndNothingIsLost) {
  const bool one = parts() == 1;
  const char* const asked = std::getenv("KWTSDK_SEEDS");
  const std::uint64_t seeds = asked == nullptr ? kSeeds : std::strtoull(asked, nullptr, 10);
  const std::uint64_t first = sim::seedFromEnvironment(1 + GetParam());
  for (std::uint64_t seed = first; seed <= (one ? first : seeds); seed += parts()) {
    runScenario(Choices(seed), testing::repeating(seed));
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, SessionCampaign, ::testing::Range<std::uint64_t>(0, parts()));

}  // namespace
}  // namespace kwtsdk::session_campaign
