#include <gtest/gtest.h>
#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/simulated_recorder.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "codec/hex.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::sim {
namespace {

using namespace testing;

TEST(SimulatedRecorder, TakesItsIdsItsLinkAndItsRecordingsEndsFromTheFolder) {
  const TemporaryFolder folder;
  writeFile(folder.file("1.opus"), "OggS" + std::string(22, '\0') + "\1xOpusHead");
  std::filesystem::create_directory(folder.file("device"));
  writeFile(folder.file("device/first-id"), "5");
  writeFile(folder.file("device/script"), "latency 1ms\ninterval 10ms\ncall\nkey 20ms\n");

  const auto scheduler = VirtualTimeScheduler::create(1);
  const auto facade = KWTBluetoothHelper::create({scheduler, nullptr, nullptr, nullptr});
  const auto recorder = openSimulatedRecorder(scheduler, folder.path());
  recorder.link->attach(facade);
  scheduler->run([&] {
    EXPECT_EQ(facade->getFileNumAndFirstId(), (FlashInfo{1, 5}));
    EXPECT_EQ(scheduler->now() % std::chrono::milliseconds(10), std::chrono::milliseconds(1));
  });
  for (const std::uint8_t code : Bytes{1, 3}) recorder.model->write(Channel::recorder, {code, 0x81, 1, 0, 0});
  recorder.model->recordPacket();
  std::string packets;
  while (const auto packet = recorder.model->nextPacket())
    packets += internal::hexString(packet->value) + " ";
  EXPECT_EQ(packets, "1280040000105400 1280040000025400 50010300b8fffe 0801001100 ");
}

}  // namespace
}  // namespace kwtsdk::sim
