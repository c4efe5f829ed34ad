#include <gtest/gtest.h>

#include "tests/campaign/host_thread.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::campaign {
namespace {

/// One recorder, one facade, one or two host threads with random operations, all decided by the seed.
void runScenario(std::uint64_t seed, const Profile& profile) {
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  scheduler->run([&] {
    Diary diary(*scheduler);
    Random random(seed);
    testing::SimHost host(scheduler, {}, std::make_shared<DiaryFaults>(seed, profile.trouble, diary),
                          std::make_shared<DiaryLog>(diary));
    for (std::uint64_t i = 0, count = random.below(4); i < count; ++i)
      host.store->add(testing::recordingOf(20000 + random.below(12768), static_cast<unsigned>(i)));
    host.model->setAlwaysEndMarker(random.below(2) == 0);
    const auto peripheral =
        std::make_shared<MeddlingPeripheral>(host.link->peripheral(), diary, *host.helper, profile, seed + 1);
    host.helper->setConnectedPeripheral(peripheral);
    static const testing::TemporaryFolder folder;  // one for all: making them takes longer than the rest
    Scene scene{diary, profile, *host.store, *host.link, *peripheral, *host.helper, folder.file("f")};
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
    if (::testing::Test::HasFailure()) ADD_FAILURE() << "What happened:\n" << diary.text;
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

class Campaign : public ::testing::TestWithParam<std::tuple<Profile, std::uint64_t>> {};

TEST_P(Campaign, EveryOperationEndsAsRequired) {
  const auto& [profile, part] = GetParam();
  for (const std::uint64_t seed : testing::seedsOf(part, kSeedsPerPart)) {
    runScenario(seed, profile);
    if (HasFailure()) FAIL() << "profile " << profile.name << ": repeat with KWTSDK_SEED=" << seed;
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
