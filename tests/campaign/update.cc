// Firmware updates of a host thread, with faults at any packet and step, two behind one another, and over a
// command that is pending.

#include <gtest/gtest.h>

#include "codec/crc32.h"
#include "tests/campaign/host_thread.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::campaign {

using namespace std::chrono_literals;

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
  const bool first =
      overPending && reports.front()->error;  // the pending command costs the first its prepare
  if (calm()) {
    if (first) {
      EXPECT_EQ(reports.front()->error->code(), 1008);
    }
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
      [this, report](const MaybeError& error, const std::optional<std::string>& value) {
        report->take(scene_.scheduler, error, value == "success");
      });
  return report;
}

// What is never answered waits until the host, which sees no progress, gives the link up.
void HostThread::awaitUpdate(const Shared& report) {
  if (report->reported->wait(60s)) return;
  EXPECT_FALSE(calm()) << "an update was never reported";
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
