#pragma once

#include "tests/session_campaign/scene.h"

namespace kwtsdk::session_campaign {

inline constexpr Duration kQueryLimit = 30s;

/// One thread of a host: random operations with random limits, each followed to its end.
class Host {
 public:
  Host(Scene& scene, std::shared_ptr<Session> session, std::uint64_t seed)
      : scene_(scene), session_(std::move(session)), random_(seed) {}

  void run();

 private:
  void act();
  void meddle();
  void query();
  void download();
  void record();
  void update();
  void transact();
  void control();
  void leave();

  Limits limits(Asked& asked, std::optional<Duration> usual);
  std::string numbered(const char* begin, std::uint64_t number, const char* end) const;
  AskedPtr begin(const std::string& name);

  /// Looks at the result at the moment at which it is there; then does with the handle what hosts do.
  template <class T, class Check>
  void follow(const Operation<T>& operation, const AskedPtr& asked, Check check);
  template <class T>
  void follow(const Operation<T>& operation, const AskedPtr& asked) {
    follow(operation, asked, [](const auto&) {});
  }
  template <class T>
  void treat(Operation<T> operation, const AskedPtr& asked);
  void cancel(Asked& asked);

  bool chance(std::uint64_t oneIn) { return random_.below(oneIn) == 0; }
  template <class T, std::size_t size>
  T anyOf(const T (&values)[size]) {
    return values[random_.below(size)];
  }

  Scene& scene_;
  std::shared_ptr<Session> session_;
  Random random_;
};

template <class T, class Check>
void Host::follow(const Operation<T>& operation, const AskedPtr& asked, Check check) {
  asked->cancel = [operation]() mutable { operation.cancel(); };
  if (asked->cancelled) asked->cancel();
  scene_.awaited += 2;
  Scene& scene = scene_;
  const std::uint64_t manner = random_.below(12);
  operation.then([&scene, asked, manner, weak = std::weak_ptr(session_)](const auto&) {
    EXPECT_EQ(++asked->thens, 1) << asked->name << " ended more than once";
    if (const auto session = manner == 0 ? weak.lock() : nullptr) {
      const auto level = session->battery(Limits().timeout(2s));
      if (asked->thens == 1) static_cast<void>(level.wait());
    }
    scene.endings->signal();
    if (manner == 1) throw std::runtime_error("of the host's own");
  });
  scene.scheduler.spawn("watch", [&scene, operation, asked, check] {
    const Result<T> result = operation.wait();
    scene.ended(*asked, testing::codeOf(result));
    check(result);
    scene.endings->signal();
  });
  treat(operation, asked);
}

template <class T>
void Host::treat(Operation<T> operation, const AskedPtr& asked) {
  const Duration some = Duration(1ms) * random_.below(chance(2) ? 20 : 4000);
  if (asked->endless) {
    if (operation.waitFor(some) || chance(2)) return;
    if (chance(2)) return cancel(*asked);
    return follow(session_->stopRecording(), begin("stop"));
  }
  switch (random_.below(8)) {
    case 0:
      return;  // goes on by itself
    case 1:
      return cancel(*asked);
    case 2:
    case 3:
      if (!operation.waitFor(some)) cancel(*asked);
      return;
    case 4:
      operation.onProgress([&scene = scene_](const auto&) { scene.scheduler.preemptionPoint(); });
      [[fallthrough]];
    default:
      static_cast<void>(operation.waitFor(5min));
  }
}

}  // namespace kwtsdk::session_campaign
