#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

#include <kwtsdk/sim/fault_plan.h>
#include <kwtsdk/sim/seed.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

namespace kwtsdk::testing {

/// What happened in a scenario of a campaign, with its virtual times: one that failed shows it.
struct Diary {
  explicit Diary(sim::VirtualTimeScheduler& virtualTime) : scheduler(virtualTime) {}

  void add(std::string_view what) {
    const auto time = std::chrono::duration<double>(scheduler.now()).count();
    text += std::to_string(time).append(" ").append(what).append("\n");
  }
  void add(sim::Fault fault, sim::LinkEvent event) {
    static constexpr std::array kEvents{"write", "acknowledgement", "notification", "subscription"};
    static constexpr std::array kNames{"none",    "drop",   "delay",     "duplicate",
                                       "corrupt", "refuse", "disconnect"};
    add(std::string("  ") + kNames.at(static_cast<std::size_t>(fault)) + " of a " +
        kEvents.at(static_cast<std::size_t>(event)));
  }

  sim::VirtualTimeScheduler& scheduler;
  std::string text;
};

/// The seeds of one part: `usual`, or as many as KWTSDK_SEEDS says, since under a sanitizer each takes much
/// longer. KWTSDK_SEED names the only one, which is the first part's.
inline std::vector<std::uint64_t> seedsOf(std::uint64_t part, std::uint64_t usual) {
  const bool isOne = std::getenv("KWTSDK_SEED") != nullptr;
  const char* const asked = std::getenv("KWTSDK_SEEDS");
  const std::uint64_t count = asked == nullptr ? usual : std::strtoull(asked, nullptr, 10);
  std::vector<std::uint64_t> seeds(!isOne ? count : part == 0 ? 1 : 0);
  std::iota(seeds.begin(), seeds.end(), sim::seedFromEnvironment(1 + part * count));
  return seeds;
}

}  // namespace kwtsdk::testing
