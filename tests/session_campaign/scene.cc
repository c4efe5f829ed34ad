#include "tests/session_campaign/scene.h"

namespace kwtsdk::session_campaign {

namespace {

/// How much later than its limit an operation may end.
constexpr Duration kGrace = 6s;

}  // namespace

Scene::Scene(const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime, const std::string& folder,
             const Profile& profile, const Choices& choices, Diary& kept)
    : Scene(virtualTime, folder, kept, std::make_shared<NotedFaults>(profile, choices, kept)) {}

Scene::Scene(const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime, const std::string& folder,
             Diary& kept, const std::shared_ptr<NotedFaults>& plan)
    : RecorderScene(virtualTime, folder, plan, {}),
      diary(kept),
      faults(plan),
      endings(virtualTime->semaphore("an operation has ended")) {
  model->setFirmwareSlot([this](const Bytes& image) { return installed.insert(testing::text(image)), true; });
  store->onChange = [this] { remember(); };
  remember();
}

void Scene::remember() { moments.push_back({scheduler.now(), battery, store->firstId(), store->count()}); }

bool Scene::past(const std::function<bool(const Moment&)>& was, Duration since) const {
  for (auto moment = moments.rbegin(); moment != moments.rend(); ++moment) {
    if (was(*moment)) return true;
    if (moment->from < since) return false;
  }
  return false;
}

void Scene::ended(Asked& operation, const std::error_code& code) {
  diary.add(operation.name + " ended: " + (code ? code.message() : "ok"));
  checkEnd(operation, code);
}

/// In time, and for a reason that there was.
void Scene::checkEnd(const Asked& operation, const std::error_code& code) const {
  const Duration now = scheduler.now(), lasted = now - operation.began;
  const auto inTime = [&](const std::optional<Duration>& begin, Duration longest, const char* what) {
    if (begin) {
      EXPECT_LE(std::chrono::duration<double>(now - *begin).count(),
                std::chrono::duration<double>(longest).count())
          << operation.name << ": too long after " << what;
    }
  };
  if (operation.limit) inTime(operation.began, *operation.limit + kGrace, "it was asked");
  inTime(operation.cancelled, operation.leaving, "it was cancelled");
  if (closed) {
    const Duration both = std::max(*closed, operation.began);
    inTime(both, both == *closed ? 16s : Duration(100ms), "the session was closed");
  }

  EXPECT_TRUE(!closed || operation.began <= *closed || code) << operation.name << " of a closed session";

  const auto expected = [&](Errc reason, bool there) {
    EXPECT_TRUE(there || code != reason) << operation.name << " ended without a reason: " << code.message();
  };
  expected(Errc::cancelled, operation.cancelled.has_value());
  expected(Errc::closed, closed || letGo);
  expected(Errc::timedOut, operation.limit && lasted >= *operation.limit);
  for (const Errc reason :
       {Errc::stalled, Errc::linkLost, Errc::linkFailed, Errc::incomplete, Errc::damaged}) {
    expected(reason, linkTrouble());
  }
  expected(Errc::badArgument, operation.name.starts_with("transact"));  // which may throw
  for (const Errc never : {Errc::notARecorder, Errc::packetsTooSmall, Errc::noResources}) {
    expected(never, false);
  }
}

/// Nothing on the disk differs from what was recorded, and nothing is gone that is not there.
void Scene::checkLost() const {
  EXPECT_EQ(store->lost, std::set<std::uint32_t>()) << "deleted, and not on the disk";
  for (const auto& entry : std::filesystem::directory_iterator(path)) {
    if (isHostile || entry.path().extension() != ".opus") continue;
    const std::string content = testing::contentOf(entry.path().string());
    const auto isIt = [&](const auto& one) { return testing::text(one.second.content) == content; };
    EXPECT_TRUE(content == existing || std::ranges::any_of(store->held, isIt))
        << entry.path().filename() << " is none of the recordings";
  }
}

}  // namespace kwtsdk::session_campaign
