#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include <kwtsdk/sim/seed.h>

#include "tests/session_campaign/host.h"
#include "tests/support/repeat.h"

namespace kwtsdk::session_campaign {
namespace {

constexpr std::array kProfiles{
    Profile{"calm", {}},
    Profile{"delays", {.delay = 1, .longestDelay = 15s}},
    Profile{"losses", {.drop = 0.4, .duplicate = 0.3, .corrupt = 0.3}},
    Profile{"lost links", {.refuse = 0.3, .disconnect = 0.7}},
    Profile{"any fault",
            {.drop = 0.2,
             .delay = 0.2,
             .duplicate = 0.1,
             .corrupt = 0.1,
             .refuse = 0.1,
             .disconnect = 0.3,
             .longestDelay = 12s}},
};
constexpr std::uint64_t kSeeds = 20'000;

/// One, when one seed alone is asked for.
std::uint64_t parts() { return std::getenv("KWTSDK_SEED") != nullptr ? 1 : 8; }

const std::string& hostFolder() {
  static const testing::TemporaryFolder folder;
  static const std::string path = folder.path();
  return path;
}

void empty(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    std::filesystem::remove_all(entry.path());
}

session::Options anyOptions(sim::VirtualTimeScheduler& scheduler, Random& random) {
  session::Options options;
  static constexpr std::array<std::optional<Duration>, 4> kKeeps{30s, std::nullopt, 0s, 1s};
  options.keepLink(kKeeps.at(random.below(kKeeps.size())));
  if (random.below(3) == 0) {
    options.executor([queue = scheduler.serialQueue("host's own")](std::function<void()> work) {
      queue->async(std::move(work));
    });
  }
  return options;
}

void fill(Scene& scene, Random& random) {
  using testing::Content;
  static constexpr std::array kContents{Content::ogg, Content::ogg,     Content::ogg,
                                        Content::ogg, Content::endless, Content::noOgg};
  static constexpr std::array<std::size_t, 6> kSizes{1, 1, 1, 1, 2, 3};
  for (std::uint64_t i = 0, count = random.below(4); i < count; ++i) {
    scene.store->put(testing::storedRecording(kSizes.at(random.below(kSizes.size())),
                                              static_cast<unsigned>(i),
                                              kContents.at(random.below(kContents.size()))));
  }
  if (random.below(6) == 0) {
    scene.existing = testing::text(testing::storedRecording(1, 0));
    testing::writeFile(scene.file("d0.opus"), scene.existing);
  }
  scene.model->setAlwaysEndMarker(random.below(2) == 0);
  if (random.below(4) == 0) scene.model->setKeyAfter(Duration(1ms) * random.below(2000));
  if (random.below(6) == 0) scene.model->setCallAfter(Duration(1ms) * random.below(2000));
}

/// Somebody who reads every event, and may stop a while or not have the patience to wait for one.
void readEvents(Scene& scene, const session::Stream<session::Event>& events, Random random) {
  std::size_t ended = 0;
  for (;;) {
    Limits limits;
    if (random.below(4) == 0) limits.timeout(Duration(1ms) * random.below(9000));
    const auto event = events.next(limits).wait();
    if (event && !*event) break;
    if (!event && event.error() != Errc::timedOut) {
      EXPECT_EQ(event.error().code(), Errc::closed) << event.error().text();
      break;
    }
    if (event && std::holds_alternative<session::event::OperationEnded>(**event)) ++ended;
    if (random.below(8) == 0) scene.scheduler.sleep(Duration(1ms) * random.below(500));
  }
  scene.endings->signal();
}

/// One recorder, one session, two host threads with random operations, all decided by the seed.
void runScenario(std::uint64_t seed) {
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  const Profile& profile = kProfiles.at(seed % kProfiles.size());
  Diary diary{*scheduler};
  scheduler->setTimeLimit(2h);
  scheduler->setDeadlockHandler([&](const std::string&) {
    std::fprintf(stderr, "%sIt never ends: %s", diary.text.c_str(), testing::repeating(seed).c_str());
  });
  scheduler->run([&] {
    Random random(seed);
    Scene scene(scheduler, hostFolder(), profile, diary);
    fill(scene, random);
    auto session = scene.open(anyOptions(*scheduler, random));
    if (random.below(4) == 0) {
      ++scene.awaited;
      scheduler->spawn("reader", [&, events = session->events(1 + random.below(40)), own = Random(seed + 7)] {
        readEvents(scene, events, own);
      });
    }
    const auto hostEnded = scheduler->semaphore("host ended");
    for (const std::uint64_t number : {1U, 2U}) {
      scheduler->spawn("host", [&scene, session, hostEnded, number, seed]() mutable {
        Host(scene, std::exchange(session, nullptr), seed * 31 + number).run();
        hostEnded->signal();
      });
    }
    const bool leaves = random.below(3) == 0;
    if (leaves) {
      scene.letGo = true;
      session = nullptr;
    }
    for (int i = 0; i < 2; ++i) hostEnded->wait(std::nullopt);
    for (const AskedPtr& asked : scene.asked) {
      if (asked->endless && asked->cancel) asked->cancelled = asked->cancelled.value_or(scheduler->now());
      if (asked->endless && asked->cancel) asked->cancel();
    }
    if (random.below(2) == 0) scheduler->sleep(Duration(1ms) * random.below(20'000));
    scene.letGo = true;
    session = nullptr;
    for (unsigned i = 0; i < scene.awaited; ++i) scene.endings->wait(std::nullopt);
    scene.checkLost();
    if (!scene.faults->since(sim::Fault::duplicate, Duration(0))) {  // of a stop, which then starts
      EXPECT_LE(scene.microphone->made.size(), scene.recordings) << "a stop has started a recorder";
    }
    if (::testing::Test::HasFailure())
      ADD_FAILURE() << "What happened, " << profile.name << ":\n" << diary.text << testing::repeating(seed);
  });
  empty(hostFolder());
}

class SessionCampaign : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(SessionCampaign, EveryOperationEndsInTimeAndNothingIsLost) {
  const bool one = parts() == 1;
  const char* const asked = std::getenv("KWTSDK_SEEDS");
  const std::uint64_t seeds = asked == nullptr ? kSeeds : std::strtoull(asked, nullptr, 10);
  const std::uint64_t first = sim::seedFromEnvironment(1 + GetParam());
  for (std::uint64_t seed = first; seed <= (one ? first : seeds); seed += parts()) {
    runScenario(seed);
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, SessionCampaign, ::testing::Range<std::uint64_t>(0, parts()));

}  // namespace
}  // namespace kwtsdk::session_campaign
