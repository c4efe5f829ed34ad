#include <gtest/gtest.h>
#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/simulated_recorder.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::sim {
namespace {

using kwtsdk::testing::writeFile;

TEST(SimulatedRecorder, TakesItsIdsAndItsLinkFromTheFolder) {
  const kwtsdk::testing::TemporaryFolder folder;
  writeFile(folder.file("1.opus"), "OggS" + std::string(22, '\0') + "\1xOpusHead");
  std::filesystem::create_directory(folder.file("device"));
  writeFile(folder.file("device/first-id"), "5");
  writeFile(folder.file("device/script"), "latency 1ms\ninterval 10ms\n");

  const auto scheduler = VirtualTimeScheduler::create(1);
  const auto facade = KWTBluetoothHelper::create({scheduler, nullptr, nullptr, nullptr});
  const auto recorder = openSimulatedRecorder(scheduler, folder.path());
  recorder.link->attach(facade);
  scheduler->run([&] {
    EXPECT_EQ(facade->getFileNumAndFirstId(), (FlashInfo{1, 5}));
    EXPECT_EQ(scheduler->now() % std::chrono::milliseconds(10), std::chrono::milliseconds(1));
  });
}

}  // namespace
}  // namespace kwtsdk::sim
