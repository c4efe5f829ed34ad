#include "tests/campaign/host_thread.h"

#include <gtest/gtest.h>

#include "tests/support/facade_operations.h"

namespace kwtsdk::campaign {

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
    static constexpr std::array<Operation, 7> kOperations{
        &HostThread::completionForm, &HostThread::blockingForm, &HostThread::blockingForm,
        &HostThread::composite,      &HostThread::download,     &HostThread::recording,
        &HostThread::update};
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

void HostThread::await(const Shared& report, Duration patience) {
  const bool reported = report->reported->wait(patience);
  scene_.scheduler.sleep(3ms);  // the command is pending until its completion has returned
  if (!undisturbed(*report)) return;
  ASSERT_TRUE(reported) << report->name << " was never reported";
  const bool refused = scene_.profile.hosts == 2 && report->refusedAsBusy();
  EXPECT_TRUE(!calm() || report->right || refused) << report->name << " reported something wrong";
}

void HostThread::completionForm() {
  const std::string count = std::to_string(scene_.store.count());
  const std::pair<const char*, std::string> answers[]{{"power", "87"},
                                                      {"version", "1.2.3"},
                                                      {"capacity", "536870912,"},
                                                      {"count", count + ","},
                                                      {"info", "missing"},
                                                      {"notice", "1382"},
                                                      {"deletion", count == "0" ? "4," : "2,"}};
  const auto& [name, answer] = answers[random_.below(std::size(answers))];
  const auto report = begin(name);
  const auto isAnswer = [begin = answer](auto&, auto& text) { return text.starts_with(begin); };
  testing::completionForm(name).begin(scene_.helper, {into(report, isAnswer)}, scene_.path, 9);
  await(report);
}

void HostThread::blockingForm() {
  const Clearing clearing(*this);
  scene_.diary.add("host " + std::to_string(number_) + " begins: blocking form");
  const Duration start = scene_.scheduler.now();
  const auto& forms = testing::blockingForms();
  const std::size_t which = random_.below(forms.size());
  const std::string value = forms[which].call(scene_.helper);
  static const testing::Lines kBegins{"87", "1.2.3", "536870912,", "", "1", ""};
  const bool right = value != "none" && value.starts_with(kBegins.at(which));
  EXPECT_LE(scene_.scheduler.now() - start, forms[which].timeOut)
      << forms[which].name << " ran over its time-out";
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
  // A damaged count may name 65,534 files: the listing asks for each of them, 3 ms after the one before and
  // also without a link, and ends as late as that.
  await(report, listing ? 20min : 60s);
  EXPECT_TRUE(report->calls == 1 || !listing) << "a listing was never reported";
}

}  // namespace kwtsdk::campaign
