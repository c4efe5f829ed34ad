#pragma once

#include "tests/session_campaign/scene.h"

namespace kwtsdk::session_campaign {

/// One thread of a host: random operations with random limits, each followed to its end.
class Host {
 public:
  Host(Scene& scene, std::shared_ptr<Session> session, std::uint64_t seed)
      : scene_(scene), session_(std::move(session)), random_(seed) {}

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

  /// Looks at the result at the moment at which it is there; then does with the handle what hosts do.
  template <class T>
  void follow(Operation<T> operation, const AskedPtr& asked,
              std::function<void(const Result<T>&)> check = nullptr);
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
  Random random_;
};

}  // namespace kwtsdk::session_campaign
