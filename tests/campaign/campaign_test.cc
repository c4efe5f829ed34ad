#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include <kwtsdk/sim/microphone.h>
#include <kwtsdk/sim/seed.h>

#include "tests/campaign/host_thread.h"
#include "tests/support/repeat.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::campaign {
namespace {

/// Packets that hold their number, from 0 in each recording.
class CountingMicrophone : public sim::Microphone {
 public:
  void start() override { next_ = 0; }
  Bytes nextPacket() override { return {next_++}; }

 private:
  std::uint8_t next_ = 0;
};

/// One recorder, one facade, one or two host threads with random operations, all decided by the seed.
void runScenario(std::uint64_t seed, const Profile& profile) {
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  const std::string repeating = testing::repeating(seed, std::string("*/") + profile.name + "0");
  Diary diary{*scheduler};
  scheduler->setDeadlockHandler([&](const std::string&) {
    std::fprintf(stderr, "%sIt never ends: %s", diary.text.c_str(), repeating.c_str());
  });
  scheduler->run([&] {
    Random random(seed);
    testing::SimHost host(scheduler, {}, std::make_shared<DiaryFaults>(seed, profile.trouble, diary),
                          std::make_shared<DiaryLog>(diary));
    for (std::uint64_t i = 0, count = random.below(4); i < count; ++i)
      host.store->add(testing::recordingOf(20000 + random.below(12768), static_cast<unsigned>(i)));
    host.model->setAlwaysEndMarker(random.below(2) == 0);
    host.model->setMicrophone(std::make_shared<CountingMicrophone>());
    const auto peripheral =
        std::make_shared<MeddlingPeripheral>(host.link->peripheral(), diary, *host.helper, profile, seed + 1);
    host.helper->setConnectedPeripheral(peripheral);
    static const testing::TemporaryFolder folder;  // one for all: making them takes longer than the rest
    Scene scene{diary,      profile,     *host.store,  *host.model,
                *host.link, *peripheral, *host.helper, folder.file("f")};
    const auto ended = scheduler->semaphore("host ended");
    const auto runHost = [&](std::size_t number) {
      HostThread(scene, number, seed * 31 + number).run();
      ended->signal();
    };
    if (profile.hosts == 2) scheduler->spawn("host 1", [&] { runHost(1); });
    runHost(0);
    for (int i = 0; i < profile.hosts; ++i) ended->wait(std::nullopt);
    // Stragglers: watchdog, late replies, the deletion after a download.
    scheduler->sleep(30s);

    const std::weak_ptr<KWTBluetoothHelper> weak = host.helper;
    host.helper = nullptr;
    host.link = nullptr;
    EXPECT_TRUE(weak.expired()) << "the facade outlives its host";
    EXPECT_LE(diary.ledger.deletions, diary.ledger.downloads - diary.ledger.downloadsFailed)
        << "a download deleted twice";
    if (::testing::Test::HasFailure()) ADD_FAILURE() << "What happened:\n" << diary.text << repeating;
  });
}

constexpr std::array kProfiles{
    Profile{"OneCalmHost", 1, true, Trouble::none},
    Profile{"TwoHostsCompletionForms", 2, false, Trouble::none},
    Profile{"TwoHosts", 2, true, Trouble::none},
    Profile{"AHostThatClears", 1, true, Trouble::clears},
    Profile{"DelaysAtTheTimeOuts", 1, true, Trouble::delays},
    Profile{"TwoHostsDelays", 2, true, Trouble::delays},
    Profile{"AnyFault", 1, true, Trouble::any},
    Profile{"TwoHostsAnyFault", 2, true, Trouble::any},
};
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
    runScenario(seed, profile);
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
