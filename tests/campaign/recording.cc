// Live recordings of a host thread: queries in between, a stop at any moment, recorders that end by
// themselves.

#include <gtest/gtest.h>

#include "tests/campaign/host_thread.h"
#include "tests/support/temporary_folder.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::campaign {

using namespace std::chrono_literals;

namespace {

constexpr Duration kPacket = sim::Microphone::kPacketDuration;

}  // namespace

void HostThread::recording() {
  const Clearing clearing(*this);
  std::remove(scene_.path.c_str());
  const bool refused = random_.below(8) == 0, endsItself = random_.below(3) == 0;
  scene_.model.setInCall(refused);
  scene_.model.setKeyAfter(endsItself ? std::optional(kPacket * static_cast<int>(random_.below(9)))
                                      : std::nullopt);
  const Duration begun = scene_.scheduler.now();
  const auto started = startRecording(refused);
  for (std::uint64_t i = random_.below(4); i > 0; --i) queryWhileRecording();
  // Half of the stops fall on the moment of a packet.
  scene_.scheduler.sleep(random_.below(2) == 0 ? kPacket * static_cast<int>(random_.below(6))
                                               : 1ms * static_cast<int>(random_.below(120)));
  const auto packets = static_cast<std::uint64_t>((scene_.scheduler.now() - begun) / kPacket);
  if (started->calls == 1 && !started->error && (!endsItself || random_.below(2) == 0)) stopRecording();
  scene_.scheduler.sleep(kPacket * 10);
  if (calm()) {
    EXPECT_EQ(started->calls, 1) << "the start of a recording was never reported";
    EXPECT_TRUE(started->right) << "the start of a recording reported something wrong";
    EXPECT_FALSE(scene_.helper.completionBlock() || scene_.helper.writeDataBlock());
    if (!refused) checkRecording(endsItself ? 0 : packets);
    std::remove(scene_.path.c_str());
    return;
  }
  // Whatever went wrong: a recording that nobody stops must not meet the next operation.
  scene_.helper.setCompletionBlock(nullptr);
  scene_.helper.stopRecord(nullptr);
  startAnew();
  scene_.helper.setCompletionBlock(nullptr);
  scene_.helper.setWriteDataBlock(nullptr);
  std::remove(scene_.path.c_str());
}

HostThread::Shared HostThread::startRecording(bool refused) {
  static constexpr std::array<std::int64_t, 3> kTypes{0, 1, 3};
  const auto report = begin("start of a recording");
  scene_.helper.startRecordWithType(kTypes.at(random_.below(kTypes.size())), scene_.path,
                                    [this, report, refused](const MaybeError& error) {
                                      const bool right = refused ? error && error->code() == 1004 : !error;
                                      report->take(scene_.scheduler, error, right);
                                    });
  report->reported->wait(calm() ? 1s : 10s);
  return report;
}

void HostThread::queryWhileRecording() {
  scene_.scheduler.sleep(1ms * static_cast<int>(random_.below(45)));
  const auto query = begin("battery level during a recording");
  scene_.helper.getPower([this, query](const MaybeError& error, std::uint64_t level) {
    query->take(scene_.scheduler, error, level == 87 || level == 0);
  });
  query->reported->wait(1s);
  scene_.scheduler.sleep(3ms);
  if (!calm()) return;
  ASSERT_EQ(query->calls, 1) << query->name << " was never reported";
  EXPECT_TRUE(query->refusedAsBusy() || (query->right && !query->error))
      << query->name << " reported something wrong";
}

void HostThread::stopRecording() {
  const auto file = scene_.helper.recordFileHandle();
  const auto report = begin("stop of a recording");
  scene_.helper.stopRecord(
      [this, report](const MaybeError& error) { report->take(scene_.scheduler, error, !error); });
  if (!calm()) return;
  if (report->refusedAsBusy()) {  // the start, or a query, is pending until its completion has returned
    scene_.scheduler.sleep(3ms);
    return stopRecording();
  }
  EXPECT_FALSE(scene_.helper.recordFileHandle() || scene_.helper.writeDataBlock());
  EXPECT_FALSE(file && file->isOpen());
  report->reported->wait(kPacket * 5);  // audio under way may have freed the link instead
  scene_.scheduler.sleep(3ms);
  EXPECT_TRUE(report->calls == 0 || report->right) << "a stop reported something wrong";
  EXPECT_FALSE(scene_.helper.completionBlock()) << "a stop was neither answered nor freed";
  // Without its answer nothing ends the subscription.
  if (report->calls == 0) scene_.helper.stopSubscribingToCharacteristic(wire::CHARACTERISTIC_NOTIFY);
}

// The file holds the packets from the first on, without a gap; the last ones may still have been queued.
void HostThread::checkRecording(std::uint64_t packetsBeforeStop) const {
  constexpr std::size_t size = 5;
  const std::string content = testing::contentOf(scene_.path);
  ASSERT_EQ(content.size() % size, 0U) << "a packet was written in part";
  for (std::size_t i = 0; i * size < content.size(); ++i) {
    const std::string expected{'\x50', '\x01', '\x01', '\0', static_cast<char>(i)};
    ASSERT_EQ(content.substr(i * size, size), expected) << "packet " << i << " is lost or out of order";
  }
  EXPECT_GE(content.size() / size + 2, packetsBeforeStop) << "audio was lost";
}

}  // namespace kwtsdk::campaign
