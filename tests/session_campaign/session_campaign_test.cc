#include <cstdio>

#include "tests/session_campaign/host.h"

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
constexpr std::uint64_t kParts = 4, kSeedsPerPart = 5000;

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

/// One recorder, one session, two host threads with random operations, all decided by the seed.
void runScenario(std::uint64_t seed) {
  static const testing::TemporaryFolder folder;  // one for all: making them takes longer than the rest
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  const Profile& profile = kProfiles.at(seed % kProfiles.size());
  Diary diary(*scheduler);
  scheduler->setTimeLimit(2h);
  scheduler->setDeadlockHandler([&](const std::string&) {
    std::fprintf(stderr, "seed %llu, %s: it never ends\n%s", static_cast<unsigned long long>(seed),
                 profile.name, diary.text.c_str());
  });
  scheduler->run([&] {
    Random random(seed);
    Scene scene(scheduler, folder.path(), diary, std::make_shared<NotedFaults>(seed, profile, diary));
    fill(scene, random);
    auto session = scene.open(anyOptions(*scheduler, random));
    const auto events = session->events(1 + random.below(40));
    int heard = 0;
    if (random.below(4) == 0) events.forEach([&heard](const auto&) { ++heard; });
    const auto hostEnded = scheduler->semaphore("host ended");
    for (const std::uint64_t number : {1U, 2U}) {
      scheduler->spawn("host", [&scene, session, hostEnded, number, seed]() mutable {
        Host(scene, std::exchange(session, nullptr), seed * 31 + number).run();
        hostEnded->signal();
      });
    }
    if (random.below(3) == 0) {
      scene.letGo = true;
      session = nullptr;
    }
    for (int i = 0; i < 2; ++i) hostEnded->wait(std::nullopt);
    for (const AskedPtr& asked : scene.asked) {
      if (!asked->endless || !asked->cancel) continue;
      asked->cancelled = asked->cancelled.value_or(scheduler->now());
      asked->cancel();
    }
    if (random.below(2) == 0) scheduler->sleep(Duration(1ms) * random.below(20'000));
    scene.letGo = true;
    session = nullptr;
    for (unsigned i = 0; i < scene.awaited; ++i) scene.endings->wait(std::nullopt);
    scene.checkLost();
    if (::testing::Test::HasFailure()) ADD_FAILURE() << "What happened:\n" << diary.text;
  });
  for (const std::string& name : testing::namesIn(folder.path())) std::filesystem::remove(folder.file(name));
}

class SessionCampaign : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(SessionCampaign, EveryOperationEndsInTimeAndNothingIsLost) {
  for (const std::uint64_t seed : testing::seedsOf(GetParam(), kSeedsPerPart)) {
    runScenario(seed);
    if (HasFailure()) {
      FAIL() << kProfiles.at(seed % kProfiles.size()).name << ": repeat with KWTSDK_SEED=" << seed;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, SessionCampaign, ::testing::Range<std::uint64_t>(0, kParts));

}  // namespace
}  // namespace kwtsdk::session_campaign
