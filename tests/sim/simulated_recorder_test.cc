#include <gtest/gtest.h>
#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/seed.h>
#include <kwtsdk/sim/simulated_recorder.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::sim {
namespace {

using kwtsdk::testing::contentOf;
using kwtsdk::testing::TemporaryFolder;
using kwtsdk::testing::writeFile;

std::string failureOf(const std::string& folder) {
  try {
    openSimulatedRecorder(VirtualTimeScheduler::create(1), folder);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(SimulatedRecorder, IsAFolderThatAFacadeOperates) {
  const TemporaryFolder folder;
  const std::string recording = "OggS" + std::string(22, '\0') + "\1xOpusHead" + std::string(40000, 'a');
  writeFile(folder.file("1.opus"), recording);
  writeFile(folder.file("2.opus"), recording);
  std::filesystem::create_directory(folder.file("device"));
  writeFile(folder.file("device/first-id"), "5");
  writeFile(folder.file("device/script"), "latency 1ms\ninterval 10ms\n");

  const auto scheduler = VirtualTimeScheduler::create(seedFromEnvironment(1));
  const auto facade = KWTBluetoothHelper::create({scheduler, nullptr, nullptr, nullptr});
  const auto recorder = openSimulatedRecorder(scheduler, folder.path());
  recorder.link->attach(facade);
  recorder.model->setBatteryLevel(77);
  scheduler->run([&] {
    EXPECT_EQ(facade->getPower(), 77);
    EXPECT_EQ(scheduler->now() % std::chrono::milliseconds(10), std::chrono::milliseconds(1));
    EXPECT_EQ(facade->getFirmwareVersion(), "1.2.3");
    EXPECT_EQ(facade->getFileNumAndFirstId(), (FlashInfo{2, 5}));
    EXPECT_EQ(facade->getFileInfo(6)->filesize(), 65536U);
    facade->downloadFirstFlashFile(folder.file(".got"), nullptr,
                                   [](const MaybeError& error) { EXPECT_FALSE(error); });
  });
  EXPECT_EQ(contentOf(folder.file(".got")).substr(0, recording.size()), recording);
  EXPECT_FALSE(std::filesystem::exists(folder.file("1.opus")));
  EXPECT_EQ(contentOf(folder.file("device/first-id")), "6\n");
}

TEST(SimulatedRecorder, SaysWhichFileIsWrong) {
  const TemporaryFolder folder;
  EXPECT_NE(failureOf(folder.file("missing")).find("cannot be read"), std::string::npos);
  std::filesystem::create_directory(folder.file("device"));
  writeFile(folder.file("device/script"), "mtu many");
  EXPECT_NE(failureOf(folder.path()).find("device/script, line 1, \"mtu many\": "), std::string::npos);
  std::filesystem::remove(folder.file("device/script"));
  std::filesystem::create_directory(folder.file("device/script"));
  EXPECT_NE(failureOf(folder.path()).find("device/script cannot be read"), std::string::npos);
}

}  // namespace
}  // namespace kwtsdk::sim
