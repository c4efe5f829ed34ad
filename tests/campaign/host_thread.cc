#include "tests/campaign/host_thread.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::campaign {

using namespace std::chrono_literals;

namespace {

constexpr std::uint64_t kBlock = 32768;

}  // namespace

void HostThread::Report::take(sim::VirtualTimeScheduler& scheduler, const MaybeError& given, bool isRight) {
  EXPECT_EQ(++calls, 1) << name << " was reported more than once";
  error = given;
  right = isRight;
  scheduler.preemptionPoint();
  reported->signal();
  scheduler.preemptionPoint();
}

HostThread::Clearing::Clearing(HostThread& host) : ledger_(host.scene_.ledger), number_(host.number_) {
  ++ledger_.clearing.at(number_);
  ++ledger_.cleared.at(number_);
}

HostThread::Clearing::~Clearing() { --ledger_.clearing.at(number_); }

void HostThread::run() {
  for (std::uint64_t i = 0, count = 2 + random_.below(4); i < count && !::testing::Test::HasFailure(); ++i) {
    // A host that saw trouble connects anew: what a recorder still sends of an abandoned download is gone
    // then.
    if (number_ == 0 && scene_.peripheral.state() != PeripheralState::connected) {
      scene_.link.connect();
    }
    switch (scene_.profile.blocking ? random_.below(7) : 0) {
      case 0:
        completionForm();
        break;
      case 1:
      case 2:
        blockingForm();
        break;
      case 3:
        composite();
        break;
      case 4:
        number_ == 0 ? download() : blockingForm();
        break;
      case 5:
        number_ == 0 ? recording() : blockingForm();
        break;
      default:
        number_ == 0 ? update() : blockingForm();
        break;
    }
  }
}

HostThread::Shared HostThread::begin(const char* name) {
  auto report = std::make_shared<Report>();
  report->name = name;
  scene_.trace.add("host " + std::to_string(number_) + " begins: " + name);
  report->before = scene_.ledger;
  report->streaming = scene_.helper.writeDataBlock() != nullptr;
  report->reported = scene_.scheduler.semaphore(name);
  return report;
}

template <class T>
ValueCompletion<T> HostThread::into(const Shared& report, std::function<bool(const T&)> right) {
  return [&scheduler = scene_.scheduler, report, right = std::move(right)](const MaybeError& error,
                                                                           const std::optional<T>& value) {
    report->take(scheduler, error, value && right(*value));
  };
}

bool HostThread::undisturbed(const Report& report) const {
  const Ledger& now = scene_.ledger;
  const std::size_t other = 1 - number_;
  return !report.streaming && now.faults == report.before.faults && now.timeouts == report.before.timeouts &&
         report.before.clearing.at(other) == 0 && now.cleared.at(other) == report.before.cleared.at(other);
}

bool HostThread::calm() const {
  return scene_.profile.trouble == Trouble::none && (scene_.profile.hosts == 1 || !scene_.profile.blocking);
}

void HostThread::await(const Shared& report) {
  const bool reported = report->reported->wait(60s);
  scene_.scheduler.sleep(3ms);  // the command is pending until its completion has returned
  if (!undisturbed(*report)) return;
  ASSERT_TRUE(reported) << report->name << " was never reported";
  const bool refused = report->refusedAsBusy();
  if (calm()) {
    EXPECT_TRUE(report->right || (refused && scene_.profile.hosts == 2))
        << report->name << " reported something wrong";
  }
}

void HostThread::completionForm() {
  KWTBluetoothHelper& helper = scene_.helper;
  static constexpr std::array kNames{"power", "version", "capacity", "count", "info", "notice", "deletion"};
  const std::uint64_t which = random_.below(kNames.size());
  const auto report = begin(kNames.at(which));
  const auto take = [report, this](const MaybeError& error, bool right) {
    report->take(scene_.scheduler, error, right);
  };
  switch (which) {
    case 0:
      helper.getPower([take](const MaybeError& error, std::uint64_t level) { take(error, level == 87); });
      break;
    case 1:
      helper.getFirmwareVersion(into<std::string>(report, [](const auto& text) { return text == "1.2.3"; }));
      break;
    case 2:
      helper.getCapacity(into<ByteCounts>(report, [](const auto& counts) { return counts.size() == 2; }));
      break;
    case 3:
      helper.getFileNumAndFirstId(
          into<FlashInfo>(report, [&](const auto& info) { return info.Num == scene_.store.count(); }));
      break;
    case 4:
      helper.getFileInfo(9, into<KWTFileHeader>(report, [](const auto& header) { return !header.exist(); }));
      break;
    case 5:
      helper.notifyDownloadSuccess(
          into<std::string>(report, [](const auto& text) { return text.starts_with("1382"); }));
      break;
    default:
      helper.deleteFile(9, into<ByteCounts>(report, [](const auto& result) { return result.at(0) != 0; }));
      break;
  }
  await(report);
}

void HostThread::blockingForm() {
  const Clearing clearing(*this);
  KWTBluetoothHelper& helper = scene_.helper;
  scene_.trace.add("host " + std::to_string(number_) + " begins: blocking form");
  const Duration start = scene_.scheduler.now();
  bool right = true;
  switch (random_.below(6)) {
    case 0:
      right = helper.getPower() == 87;
      break;
    case 1:
      right = helper.getFirmwareVersion() == "1.2.3";
      break;
    case 2:
      right = helper.getCapacity().has_value();
      break;
    case 3:
      right = helper.getFileNumAndFirstId() && true;
      break;
    case 4:
      right = helper.getFileInfo(10).has_value();
      break;
    default:
      right = helper.notifyDownloadSuccess();
      break;
  }
  EXPECT_LE(scene_.scheduler.now() - start, 5s) << "a blocking form ran over its time-out";
  // It returns only when its command has left nothing behind.
  const bool pending = scene_.helper.completionBlock() != nullptr,
             subscribed = scene_.peripheral.subscribed();
  scene_.scheduler.sleep(1ms);  // a watchdog says that it has cleared the command when it has done so
  // The leftover of a download, its watchdog, may take the answer away, and leaves the subscription.
  if (!calm() || scene_.ledger.timeouts != 0) return;
  EXPECT_TRUE(right) << "a blocking form lost its answer";
  EXPECT_FALSE(pending) << "a blocking form left its command behind";
  EXPECT_FALSE(subscribed) << "a blocking form returned before its subscription ended";
}

void HostThread::composite() {
  const Clearing clearing(*this);
  const bool listing = random_.below(2) == 0 || number_ != 0;
  const auto report = begin(listing ? "listing" : "deletion of the first file");
  if (listing) {
    scene_.helper.getFlashFileList(into<std::vector<KWTFileHeader>>(
        report, [count = scene_.store.count()](const auto& headers) { return headers.size() == count; }));
  } else {
    const std::size_t count = scene_.store.count();
    scene_.helper.deleteFirstFlashFile([this, report, count](const MaybeError& error) {
      const bool right = count == 0 ? error && error->code() == 4 : !error;
      report->take(scene_.scheduler, error, right);
    });
  }
  await(report);
}

// The tail of the recording, the rest of the file being there already: few packets make many scenarios.
void HostThread::download() {
  const Clearing clearing(*this);
  if (scene_.store.count() != 0 && random_.below(4) != 0) {
    Bytes begin(kBlock - 84 * random_.below(12));
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
        EXPECT_TRUE(done <= total + 84) << "progress beyond the end";
        EXPECT_EQ(report->calls, 0) << "progress after the end";
      },
      [this, report](const MaybeError& error) { report->take(scene_.scheduler, error, !error); });
  report->reported->wait(60s);
  if (random_.below(2) == 0) scene_.helper.stopMonitorTimer();
  scene_.scheduler.sleep(calm() ? 3s : 25s);  // notice and deletion follow the report
  checkDownload(*report, report->before.deletions);
  const std::string content = testing::contentOf(scene_.path);
  if (report->calls == 1 && !report->error && scene_.ledger.faults == report->before.faults) {
    ASSERT_GE(content.size(), recording.size());
    EXPECT_TRUE(content.compare(0, kBlock, std::string(recording.begin(), recording.end())) == 0)
        << "the download is not the recording";
  }
  std::remove(scene_.path.c_str());
  if (report->calls == 0 || report->error) startAnew();
}

// After a download that did not end well: what the recorder still sends must not reach the next one.
void HostThread::startAnew() {
  if (calm()) return;
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

}  // namespace kwtsdk::campaign
