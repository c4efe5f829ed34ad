#include "tests/session_campaign/scenario.h"

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

void empty(const std::string& folder) {
  for (const auto& entry : std::filesystem::directory_iterator(folder))
    std::filesystem::remove_all(entry.path());
}

session::Options anyOptions(sim::VirtualTimeScheduler& scheduler, Choices& random) {
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

void fill(Scene& scene, Choices& random) {
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
void readEvents(Scene& scene, const session::Stream<session::Event>& events, Choices random) {
  for (;;) {
    Limits limits;
    if (random.below(4) == 0) limits.timeout(Duration(1ms) * random.below(9000));
    const auto event = events.next(limits).wait();
    if (event && !*event) break;
    if (!event && event.error() != Errc::timedOut) {
      EXPECT_EQ(event.error().code(), Errc::closed) << event.error().text();
      break;
    }
    if (random.below(8) == 0) scene.scheduler.sleep(Duration(1ms) * random.below(500));
  }
  scene.endings->signal();
}

}  // namespace

void runScenario(Choices random, const std::string& repeating, const Disturbance& disturb) {
  const std::uint64_t seed = random.seed();
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  const Profile& profile = kProfiles.at(seed % kProfiles.size());
  Diary diary{*scheduler};
  scheduler->setTimeLimit(2h);
  scheduler->setDeadlockHandler([&](const std::string&) {
    std::fprintf(stderr, "%sIt never ends: %s", diary.text.c_str(), repeating.c_str());
  });
  scheduler->run([&] {
    Scene scene(scheduler, testing::sharedFolder().path(), profile, random, diary);
    fill(scene, random);
    auto session = scene.open(anyOptions(*scheduler, random));
    if (random.below(4) == 0) {
      ++scene.awaited;
      scheduler->spawn("reader", [&, events = session->events(1 + random.below(40)),
                                  own = random.with(seed + 7)] { readEvents(scene, events, own); });
    }
    const auto hostEnded = scheduler->semaphore("host ended");
    for (const std::uint64_t number : {1U, 2U}) {
      scheduler->spawn("host",
                       [&scene, session, hostEnded, choices = random.with(seed * 31 + number)]() mutable {
                         Host(scene, std::exchange(session, nullptr), choices).run();
                         hostEnded->signal();
                       });
    }
    if (disturb) disturb(scene, random.with(seed * 31));
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
    if (!scene.isHostile &&
        !scene.faults->since(sim::Fault::duplicate, Duration(0))) {  // of a stop, which then starts
      EXPECT_LE(scene.microphone->made.size(), scene.recordings) << "a stop has started a recorder";
    }
    if (::testing::Test::HasFailure())
      ADD_FAILURE() << "What happened, " << profile.name << ":\n" << diary.text << repeating;
  });
  empty(testing::sharedFolder().path());
}

}  // namespace kwtsdk::session_campaign
