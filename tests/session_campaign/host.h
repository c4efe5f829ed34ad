#pragma once

#include "tests/session_campaign/scene.h"

namespace kwtsdk::session_campaign {

inline constexpr Duration kQueryLimit = 30s, kListLimit = 2min;

/// One thread of a host: random operations with random limits, each followed to its end.
class Host {
 public:
  Host(Scene& scene, std::shared_ptr<Session> session, const Choices& choices)
      : scene_(scene), session_(std::move(session)), random_(choices) {}

  void run();

 private:
  void act();
  void meddle();
  void ask();
  void query();
  void list();
  void download();
  void downloadAll();
  void remove();
  void record();
  void update();
  void transact();
  void control();
  void leave();

  Limits limits(Asked& asked, std::optional<Duration> usual);
  std::string numbered(const char* begin, std::uint64_t number, const char* end) const;
  AskedPtr begin(const std::string& name);

  template <class T>
  using Check = std::type_identity_t<std::function<void(const Result<T>&)>>;
  /// Looks at the result at the moment at which it is there; then does with the handle what hosts do.
  template <class T>
  void follow(Operation<T> operation, const AskedPtr& asked, Check<T> check = nullptr);
  template <class T>
  void treat(const Operation<T>& operation, const AskedPtr& asked);
  void cancel(Asked& asked);

  bool chance(std::uint64_t oneIn) { return random_.below(oneIn) == 0; }
  template <class T, std::size_t size>
  T anyOf(const T (&values)[size]) {
    return values[random_.below(size)];
  }

  Scene& scene_;
  std::shared_ptr<Session> session_;
  Choices random_;
};

template <class T>
void Host::follow(Operation<T> operation, const AskedPtr& asked, Check<T> check) {
  asked->cancel = [operation] { operation.cancel(); };
  if (asked->cancelled) operation.cancel();
  scene_.awaited += 2;
  Scene& scene = scene_;
  const std::uint64_t manner = random_.below(12);
  operation.then([&scene, asked, manner, weak = std::weak_ptr(session_)](const Result<T>&) {
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
    if (check) check(result);
    scene.endings->signal();
  });
  treat(operation, asked);
}

template <class T>
void Host::treat(const Operation<T>& operation, const AskedPtr& asked) {
  const Duration some = Duration(1ms) * random_.below(chance(2) ? 20 : 4000);
  if (asked->endless) {
    if (operation.waitFor(some) || chance(2)) return;
    if (chance(2)) {
      const auto stop = begin("stop");
      return follow(session_->stopRecording(), stop);
    }
    return cancel(*asked);
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
    case 4: {
      Operation<T> followed = operation;
      followed.onProgress(
          [&scene = scene_](const session::ProgressReport&) { scene.scheduler.preemptionPoint(); });
      static_cast<void>(followed.waitFor(5min));
      return;
    }
    default:
      static_cast<void>(operation.waitFor(5min));
  }
}

}  // namespace kwtsdk::session_campaign
