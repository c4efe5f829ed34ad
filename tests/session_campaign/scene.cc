#include "tests/session_campaign/scene.h"

namespace kwtsdk::session_campaign {

Scene::Scene(const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime, const std::string& folder,
             Diary& kept, const std::shared_ptr<NotedFaults>& plan)
    : RecorderScene(virtualTime, folder, plan, {}),
      diary(kept),
      faults(plan),
      endings(virtualTime->semaphore("an operation has ended")) {
  model->setFirmwareSlot([this](const Bytes& image) { return installed.insert(testing::text(image)), true; });
}

void Scene::setLevel(std::uint32_t level) {
  levels.emplace_back(scheduler.now(), level);
  model->setBatteryLevel(level);
}

bool Scene::hadLevel(std::uint64_t level, Duration since) const {
  for (auto each = levels.rbegin(); each != levels.rend(); ++each) {
    if (each->second == level) return true;
    if (each->first < since) return false;
  }
  return false;
}

/// In time, and for a reason that there was.
void Scene::ended(const Asked& operation, const std::error_code& code) const {
  diary.add(operation.name + " ended: " + (code ? code.message() : "ok"));
  const Duration now = scheduler.now(), lasted = now - operation.began;
  const auto inTime = [&](const std::optional<Duration>& begin, Duration longest, const char* what) {
    EXPECT_TRUE(!begin || now - *begin <= longest) << operation.name << ": too long after " << what;
  };
  if (operation.limit) inTime(operation.began, *operation.limit + 6s, "it was asked");
  inTime(operation.cancelled, operation.leaving, "it was cancelled");
  const bool isLate = closed && *closed < operation.began;
  inTime(isLate ? operation.began : closed, isLate ? Duration(100ms) : 16s, "the session was closed");

  const auto expected = [&](Errc reason, bool there) {
    EXPECT_TRUE(there || code != reason) << operation.name << " ended without a reason: " << code.message();
  };
  expected(Errc::cancelled, operation.cancelled.has_value());
  expected(Errc::closed, closed || letGo);
  expected(Errc::timedOut, operation.limit && lasted >= *operation.limit);
  for (const Errc reason :
       {Errc::stalled, Errc::linkLost, Errc::linkFailed, Errc::incomplete, Errc::damaged}) {
    expected(reason, faults->any() || cut);
  }
  expected(Errc::badArgument, operation.name.starts_with("transact"));  // which may throw
  for (const Errc never : {Errc::notARecorder, Errc::packetsTooSmall, Errc::noResources})
    expected(never, false);
}

/// Nothing on the disk differs from what was recorded, and nothing is gone that is not there.
void Scene::checkLost() const {
  EXPECT_EQ(store->lost, std::set<std::uint32_t>()) << "deleted, and not on the disk";
  for (const std::string& name : testing::namesIn(path)) {
    if (!name.ends_with(".opus")) continue;
    const std::string content = testing::contentOf(file(name));
    const auto isIt = [&](const auto& one) { return testing::text(one.second.content) == content; };
    EXPECT_TRUE(content == existing || std::ranges::any_of(store->held, isIt))
        << name << " is none of the recordings";
  }
}

}  // namespace kwtsdk::session_campaign
