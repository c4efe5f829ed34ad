// What a host thread does with a file, over many packets. Downloads. Live recordings: queries in between, a
// stop at any moment, recorders that end by themselves. Firmware updates: faults at any packet and step, two
// behind one another, and over a command that is pending.

#include <gtest/gtest.h>

#include "tests/campaign/host_thread.h"
#include "tests/support/temporary_folder.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::campaign {

constexpr std::uint64_t kBlock = 32768;
constexpr Duration kPacket = sim::Microphone::kPacketDuration;

// The tail of the recording, the rest of the file being there already: few packets make many scenarios.
void HostThread::download() {
  const Clearing clearing(*this);
  if (scene_.store.count() != 0 && random_.below(4) != 0) {
    const std::uint64_t within = random_.below(2) == 0 ? 0 : random_.below(wire::kDownloadDataSize);
    Bytes begin(kBlock - wire::kDownloadDataSize * random_.below(12) - within);
    scene_.store.read(0, 0, begin);
    testing::writeFile(scene_.path, std::string(begin.begin(), begin.end()));
  }
  Bytes recording(scene_.store.count() == 0 ? 0 : kBlock);
  if (!recording.empty()) scene_.store.read(0, 0, recording);
  const auto report = begin("download");
  scene_.helper.downloadFirstFlashFile(
      scene_.path,
      [this, report](std::uint64_t done, std::uint64_t total) {
        scene_.scheduler.preemptionPoint();
        if (calm() && report->calls == 0) scene_.peripheral.wrap();
        EXPECT_TRUE(done <= total + wire::kDownloadDataSize) << "progress beyond the end";
        EXPECT_EQ(report->calls, 0) << "progress after the end";
      },
      into(report, succeeds));
  report->reported->wait(60s);
  if (random_.below(2) == 0) scene_.helper.stopMonitorTimer();
  scene_.scheduler.sleep(calm() ? 3s : 25s);  // notice and deletion follow the report
  checkDownload(*report, report->before.deletions);
  const std::string content = testing::contentOf(scene_.path);
  if (report->calls == 1 && !report->error && scene_.ledger.faults == report->before.faults) {
    EXPECT_TRUE(content.starts_with(std::string(recording.begin(), recording.end())))
        << "the download is not the recording";
  }
  std::remove(scene_.path.c_str());
  if (!calm() && (report->calls == 0 || report->error)) startAnew();
}

// After what did not end well: what the recorder still sends, a stop's answer too, must not reach the next
// operation, which any notification completes.
void HostThread::startAnew() {
  ++scene_.ledger.faults;
  scene_.link.disconnect();
  scene_.scheduler.sleep(10s);
  scene_.link.connect();
}

void HostThread::checkDownload(const Report& report, int deletionsBefore) {
  const int deletions = scene_.ledger.deletions - deletionsBefore;
  ++scene_.ledger.downloads;
  if (report.error) ++scene_.ledger.downloadsFailed;
  if (!calm() || !undisturbed(report)) return;
  EXPECT_EQ(report.calls, 1) << "a download was never reported";
  EXPECT_EQ(deletions, report.error ? 0 : 1) << "the recorder was not told to delete";
}

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
  // The watchdog of an earlier download may have fired at the very moment of the start, which it then clears.
  if (calm() && scene_.ledger.timeouts == started->before.timeouts) {
    EXPECT_EQ(started->calls, 1) << "the start of a recording was never reported";
    EXPECT_TRUE(started->right) << "the start of a recording reported something wrong";
    EXPECT_FALSE(scene_.helper.completionBlock() || scene_.helper.writeDataBlock());
    if (!refused) checkRecording(endsItself ? 0 : packets);
  } else {  // whatever went wrong: a recording that nobody stops must not meet the next operation
    scene_.helper.setCompletionBlock(nullptr);
    scene_.helper.stopRecord(nullptr);
    startAnew();
    scene_.helper.setCompletionBlock(nullptr);
    scene_.helper.setWriteDataBlock(nullptr);
  }
  std::remove(scene_.path.c_str());
}

HostThread::Shared HostThread::startRecording(bool refused) {
  static constexpr std::array<std::int64_t, 3> kTypes{0, 1, 3};
  const auto report = begin("start of a recording");
  scene_.helper.startRecordWithType(kTypes.at(random_.below(kTypes.size())), scene_.path,
                                    into(report, [refused](const MaybeError& error) {
                                      return refused ? error && error->code() == 1004 : !error;
                                    }));
  report->reported->wait(calm() ? 1s : 10s);
  return report;
}

void HostThread::queryWhileRecording() {
  scene_.scheduler.sleep(1ms * static_cast<int>(random_.below(45)));
  const auto query = begin("battery level during a recording");
  scene_.helper.getPower(into(query, [](auto&, auto level) { return level == 87 || level == 0; }));
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
  scene_.helper.stopRecord(into(report, succeeds));
  if (!calm()) return;
  if (report->refusedAsBusy()) {  // the start, or a query, is pending until its completion has returned
    scene_.scheduler.sleep(3ms);
    return stopRecording();
  }
  EXPECT_FALSE(scene_.helper.recordFileHandle() || scene_.helper.writeDataBlock() ||
               (file && file->isOpen()));
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

// Sizes around a packet and a segment: many steps, few packets.
void HostThread::update() {
  static constexpr std::array<std::size_t, 6> kSizes{88, 220, 588, 8192, 8192 + 88, 8192 + 700};
  const Clearing clearing(*this);
  Bytes image = testing::recordingOf(kSizes.at(random_.below(kSizes.size())),
                                     static_cast<unsigned>(random_.below(100)));
  const std::array<std::uint8_t, 4> version{1, 2, 3, 0};  // which the queries of the scenario expect
  std::copy(version.begin(), version.end(), image.end() - 4);
  testing::writeFile(scene_.path, std::string(image.begin(), image.end()));
  const bool overPending = random_.below(6) == 0, twice = random_.below(4) == 0;
  if (overPending) scene_.helper.sendCommand({0}, wire::CHARACTERISTIC_WRITE, 3, [](auto&&, auto&&) {});
  std::vector<Shared> reports;
  for (int i = 0; i < (twice ? 2 : 1); ++i) reports.push_back(startUpdate(image.size()));
  for (const auto& report : reports) awaitUpdate(report);
  scene_.scheduler.sleep(10ms);
  const bool first = overPending && reports.front()->error;  // the pending command costs it its prepare
  if (calm() && scene_.ledger.timeouts == reports.front()->before.timeouts) {
    EXPECT_TRUE(!first || reports.front()->error->code() == 1008) << reports.front()->error->code();
    for (std::size_t i = first ? 1 : 0; i < reports.size(); ++i) {
      EXPECT_TRUE(reports[i]->right) << "an update reported something wrong";
      EXPECT_EQ(scene_.model.installedImage(), image) << "another image was installed";
    }
    EXPECT_FALSE(scene_.helper.completionBlock());
  }
  std::remove(scene_.path.c_str());
  if (!calm()) startAnew();
}

HostThread::Shared HostThread::startUpdate(std::size_t size) {
  const auto report = begin("update");
  scene_.helper.updateFirmware(
      scene_.path,
      [report, size](std::uint64_t done, std::uint64_t total) {
        EXPECT_TRUE(done <= total && total == size && report->calls == 0) << "wrong progress of an update";
      },
      into(report, [](auto&, const auto& value) { return value == "success"; }));
  return report;
}

// What is never answered waits until the host, which sees no progress, gives the link up.
void HostThread::awaitUpdate(const Shared& report) {
  if (report->reported->wait(60s)) return;
  EXPECT_GE(scene_.profile.trouble, Trouble::delays) << "an update was never reported";
  ++scene_.ledger.faults;
  scene_.link.disconnect();
  for (int i = 0; i < 20 && report->calls == 0; ++i) {
    scene_.helper.setCompletionBlock(nullptr);
    report->reported->wait(10s);
  }
  EXPECT_EQ(report->calls, 1) << "an update was never reported, even without a link";
  scene_.link.connect();
}

}  // namespace kwtsdk::campaign
