#include "tests/campaign/scenario.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/campaign/counting_microphone.h"
#include "tests/campaign/host_thread.h"
#include "tests/support/noted_settings.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::campaign {
namespace {

const std::string& folder() {
  static const testing::TemporaryFolder instance;
  static const std::string path = instance.path();
  return path;
}

void runHosts(const std::shared_ptr<sim::VirtualTimeScheduler>& scheduler, Scene& scene,
              const Profile& profile, std::uint64_t seed) {
  const auto ended = scheduler->semaphore("hosts ended");
  for (int i = 1; i < profile.hosts; ++i) {
    scheduler->spawn("host 1", [&] {
      HostThread(scene, 1, seed * 31 + 1).run();
      ended->signal();
    });
  }
  HostThread(scene, 0, seed * 31).run();
  for (int i = 1; i < profile.hosts; ++i) ended->wait(std::nullopt);
}

}  // namespace

void runScenario(std::uint64_t seed, const Profile& profile) {
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  scheduler->run([&] {
    Ledger ledger;
    Trace trace(*scheduler);
    Random random(seed);
    const auto store = std::make_shared<sim::MemoryStore>(10);
    for (std::uint64_t i = 0, count = random.below(4); i < count; ++i) {
      store->add(testing::recordingOf(20000 + random.below(12768), static_cast<unsigned>(i)));
    }
    const auto model = std::make_shared<sim::RecorderModel>(store);
    model->setBatteryLevel(87);
    model->setVersion({0, 1, 2, 3});
    model->setAlwaysEndMarker(random.below(2) == 0);
    model->setMicrophone(std::make_shared<CountingMicrophone>());
    auto link = sim::SimulatedLink::create(
        scheduler, model, {}, std::make_shared<LedgerFaults>(seed, profile.trouble, ledger, trace));
    auto helper = KWTBluetoothHelper::create({.scheduler = scheduler,
                                              .settings = std::make_shared<testing::NotedSettings>(),
                                              .opusConverter = nullptr,
                                              .log = std::make_shared<LedgerLog>(*scheduler, ledger, trace)});
    link->attach(helper);
    const auto peripheral = std::make_shared<ObservedPeripheral>(*scheduler, link->peripheral());
    helper->setConnectedPeripheral(peripheral);
    Scene scene{*scheduler, profile, ledger,      trace,   *store,
                *model,     *link,   *peripheral, *helper, folder() + "/download"};
    runHosts(scheduler, scene, profile, seed);
    scheduler->sleep(
        std::chrono::seconds(30));  // stragglers: watchdog, late replies, the deletion after a download

    const std::weak_ptr<KWTBluetoothHelper> weak = helper;
    helper = nullptr;
    link = nullptr;
    EXPECT_TRUE(weak.expired()) << "the facade outlives its host";
    EXPECT_LE(ledger.deletions, ledger.downloads - ledger.downloadsFailed) << "a download deleted twice";
    if (::testing::Test::HasFailure()) ADD_FAILURE() << "What happened:\n" << trace.text();
  });
  std::filesystem::remove(folder() + "/download");
}

}  // namespace kwtsdk::campaign
