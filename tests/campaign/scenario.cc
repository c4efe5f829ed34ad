#include "tests/campaign/scenario.h"

#include <gtest/gtest.h>

#include <cstdio>

#include <kwtsdk/sim/microphone.h>

#include "tests/campaign/host_thread.h"
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

}  // namespace

void runScenario(Choices random, const Profile& profile, const std::string& repeating,
                 const Disturbance& disturb) {
  const std::uint64_t seed = random.seed();
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  Diary diary{*scheduler};
  scheduler->setDeadlockHandler([&](const std::string&) {
    std::fprintf(stderr, "%sIt never ends: %s", diary.text.c_str(), repeating.c_str());
  });
  scheduler->run([&] {
    testing::SimHost host(scheduler, {},
                          std::make_shared<DiaryFaults>(random.with(seed), profile.trouble, diary),
                          std::make_shared<DiaryLog>(diary));
    for (std::uint64_t i = 0, count = random.below(4); i < count; ++i)
      host.store->add(testing::recordingOf(20000 + random.below(12768), static_cast<unsigned>(i)));
    host.model->setAlwaysEndMarker(random.below(2) == 0);
    host.model->setMicrophone(std::make_shared<CountingMicrophone>());
    const auto peripheral = std::make_shared<MeddlingPeripheral>(host.link->peripheral(), diary, *host.helper,
                                                                 profile, random.with(seed + 1));
    host.helper->setConnectedPeripheral(peripheral);
    Scene scene{diary,      profile,     *host.store,  *host.model,
                *host.link, *peripheral, *host.helper, testing::sharedFolder().file("f")};
    const auto ended = scheduler->semaphore("host ended");
    // All as long as the facade lives, which may still tell them something.
    std::array hosts{HostThread(scene, 0, random.with(seed * 31)),
                     HostThread(scene, 1, random.with(seed * 31 + 1))};
    const auto runHost = [&](std::size_t number) {
      hosts.at(number).run();
      ended->signal();
    };
    if (profile.hosts == 2) scheduler->spawn("host 1", [&] { runHost(1); });
    if (disturb) {
      scheduler->spawn("other", [&] {
        disturb(scene, random.with(seed + 2));
        ended->signal();
      });
    }
    runHost(0);
    for (int i = 0; i < profile.hosts + (disturb ? 1 : 0); ++i) ended->wait(std::nullopt);
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

}  // namespace kwtsdk::campaign
