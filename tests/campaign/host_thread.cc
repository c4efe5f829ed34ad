#include "tests/campaign/host_thread.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_folder.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::campaign {
namespace {

constexpr std::uint64_t kBlock = 32768;

/// What completes without an error.
bool succeeds(const MaybeError& error) { return !error; }

}  // namespace

void HostThread::Report::take(sim::VirtualTimeScheduler& scheduler, const MaybeError& given, bool isRight) {
  EXPECT_EQ(++calls, 1) << name << " was reported more than once";
  error = given;
  right = isRight;
  scheduler.preemptionPoint();
  reported->signal();
  scheduler.preemptionPoint();
}

void HostThread::run() {
  for (std::uint64_t i = 0, count = 2 + random_.below(4); i < count && !::testing::Test::HasFailure(); ++i) {
    // A host that saw trouble connects anew: what a recorder still sends of an abandoned download is gone
    // then.
    if (number_ == 0 && scene_.peripheral.state() != PeripheralState::connected) {
      scene_.link.connect();
    }
    using Operation = void (HostThread::*)();
    static constexpr std::array<Operation, 6> kOperations{
        &HostThread::completionForm, &HostThread::blockingForm, &HostThread::blockingForm,
        &HostThread::composite,      &HostThread::download,     &HostThread::download};
    const std::size_t which = scene_.profile.blocking ? random_.below(kOperations.size()) : 0;
    (this->*kOperations.at(number_ != 0 && which > 3 ? 1 : which))();  // only one of them needs the file
  }
}

HostThread::Shared HostThread::begin(const char* name) {
  auto report = std::make_shared<Report>();
  report->name = name;
  scene_.diary.add("host " + std::to_string(number_) + " begins: " + name);
  report->before = scene_.ledger;
  report->streaming = scene_.helper.writeDataBlock() != nullptr;
  report->reported = scene_.scheduler.semaphore(name);
  return report;
}

bool HostThread::undisturbed(const Report& report) const {
  const Ledger& now = scene_.ledger;
  const std::size_t other = 1 - number_;
  return !report.streaming && now.faults == report.before.faults && now.timeouts == report.before.timeouts &&
         now.clears == report.before.clears && report.before.clearing.at(other) == 0 &&
         now.cleared.at(other) == report.before.cleared.at(other);
}

bool HostThread::calm() const {
  return scene_.profile.trouble == Trouble::none && (scene_.profile.hosts == 1 || !scene_.profile.blocking);
}

void HostThread::await(const Shared& report) {
  const bool reported = report->reported->wait(60s);
  scene_.scheduler.sleep(3ms);  // the command is pending until its completion has returned
  if (!undisturbed(*report)) return;
  ASSERT_TRUE(reported) << report->name << " was never reported";
  const bool refused = scene_.profile.hosts == 2 && report->refusedAsBusy();
  EXPECT_TRUE(!calm() || report->right || refused) << report->name << " reported something wrong";
}

void HostThread::completionForm() {
  KWTBluetoothHelper& helper = scene_.helper;
  const auto some = [](auto right) { return [right](auto&, auto& value) { return value && right(*value); }; };
  const auto text = [&](const char* begin) {
    return some([begin](auto& value) { return value.starts_with(begin); });
  };
  const auto counted = [&store = scene_.store](auto& info) { return info.Num == store.count(); };
  const std::pair<const char*, std::function<void(const Shared&)>> forms[]{
      {"power", [&](auto& r) { helper.getPower(into(r, [](auto&, auto level) { return level == 87; })); }},
      {"version", [&](auto& r) { helper.getFirmwareVersion(into(r, text("1.2.3"))); }},
      {"capacity",
       [&](auto& r) { helper.getCapacity(into(r, some([](auto& c) { return c.size() == 2; }))); }},
      {"count", [&](auto& r) { helper.getFileNumAndFirstId(into(r, some(counted))); }},
      {"info", [&](auto& r) { helper.getFileInfo(9, into(r, some([](auto& h) { return !h.exist(); }))); }},
      {"notice", [&](auto& r) { helper.notifyDownloadSuccess(into(r, text("1382"))); }},
      {"deletion", [&](auto& r) { helper.deleteFile(9, into(r, some([](auto& c) { return c[0] != 0; }))); }}};
  const auto& [name, form] = forms[random_.below(std::size(forms))];
  const auto report = begin(name);
  form(report);
  await(report);
}

void HostThread::blockingForm() {
  const Clearing clearing(*this);
  KWTBluetoothHelper& helper = scene_.helper;
  scene_.diary.add("host " + std::to_string(number_) + " begins: blocking form");
  const Duration start = scene_.scheduler.now();
  const std::function<bool()> forms[]{[&] { return helper.getPower() == 87; },
                                      [&] { return helper.getFirmwareVersion() == "1.2.3"; },
                                      [&] { return helper.getCapacity().has_value(); },
                                      [&] { return helper.getFileNumAndFirstId().has_value(); },
                                      [&] { return helper.getFileInfo(10).has_value(); },
                                      [&] { return helper.notifyDownloadSuccess(); }};
  const bool right = forms[random_.below(std::size(forms))]();
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
  const std::size_t count = scene_.store.count();
  if (listing) {
    scene_.helper.getFlashFileList(
        into(report, [count](auto&, const auto& headers) { return headers && headers->size() == count; }));
  } else {
    scene_.helper.deleteFirstFlashFile(into(report, [count](const MaybeError& error) {
      return count == 0 ? error && error->code() == 4 : !error;
    }));
  }
  await(report);
  EXPECT_TRUE(report->calls == 1 || !listing) << "a listing was never reported";
}

// The tail of the recording, the rest of the file being there already: few packets make many scenarios.
void HostThread::download() {
  const Clearing clearing(*this);
  if (scene_.store.count() != 0 && random_.below(4) != 0) {
    Bytes begin(kBlock - wire::kDownloadDataSize * random_.below(12));
    scene_.store.read(0, 0, begin);
    testing::writeFile(scene_.path, begin);
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
    EXPECT_TRUE(content.starts_with(testing::text(recording))) << "the download is not the recording";
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
