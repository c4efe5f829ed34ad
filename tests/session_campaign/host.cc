#include "tests/session_campaign/host.h"

namespace kwtsdk::session_campaign {

void Host::run() {
  for (std::uint64_t i = 0, count = 1 + random_.below(5); i < count && session_; ++i) act();
}

void Host::act() {
  if (chance(3)) meddle();
  using Action = void (Host::*)();
  static constexpr Action kActions[] = {&Host::query,    &Host::query,    &Host::query,    &Host::query,
                                        &Host::download, &Host::download, &Host::download, &Host::download,
                                        &Host::record,   &Host::record,   &Host::update,   &Host::transact,
                                        &Host::control,  &Host::leave};
  (this->*anyOf(kActions))();
  if (chance(3)) scene_.scheduler.sleep(Duration(1ms) * random_.below(3000));
}

/// What happens to a recorder while hosts use it.
void Host::meddle() {
  switch (random_.below(6)) {
    case 0:
      return scene_.model->pressKey();
    case 1:
      return scene_.model->setInCall(chance(2));
    case 2:
      if (!chance(3)) return;
      scene_.cut = true;
      scene_.diary.add("the link is cut");
      return scene_.simLink->disconnect();
    case 3:
      scene_.store->put(testing::storedRecording(1, 50 + scene_.files++ % 8));
      return;
    default:
      scene_.setLevel(static_cast<std::uint32_t>(random_.below(101)));
  }
}

std::string Host::numbered(const char* begin, std::uint64_t number, const char* end) const {
  return scene_.file(std::string(begin).append(std::to_string(number)).append(end));
}

AskedPtr Host::begin(const std::string& name) {
  auto asked = std::make_shared<Asked>();
  asked->name = name + " " + std::to_string(scene_.asked.size());
  asked->began = scene_.scheduler.now();
  scene_.asked.push_back(asked);
  scene_.diary.add(asked->name);
  return asked;
}

Limits Host::limits(Asked& asked, std::optional<Duration> usual) {
  static constexpr Duration kTimes[] = {0s, 1s, 5s, 10s, 30s};
  static constexpr Duration kSilences[] = {1s, 2s, 5s, 10s};
  Limits limits;
  if (chance(3)) limits.timeout(anyOf(kTimes));
  if (chance(2)) limits.silence(anyOf(kSilences));
  if (chance(2)) limits.reconnects(static_cast<unsigned>(random_.below(7)));
  if (chance(4)) limits.stop(asked.stop.get_token());
  if (chance(40)) cancel(asked);  // before it begins, if its token is used
  asked.limit = limits.timeout() ? limits.timeout() : usual;
  return limits;
}

void Host::cancel(Asked& asked) {
  if (!asked.cancelled) asked.cancelled = scene_.scheduler.now();
  scene_.diary.add("cancel " + asked.name);
  asked.stop.request_stop();
  if (asked.cancel) asked.cancel();
}

void Host::control() {
  switch (random_.below(3)) {
    case 0: {
      const auto asked = begin("connect");
      return follow(session_->connect(limits(*asked, kQueryLimit)), asked);
    }
    case 1:
      return follow(session_->disconnect(), begin("disconnect"));
    default:
      return follow(session_->stopRecording(), begin("stopRecording"));
  }
}

/// Closes it, lets go of it, or cancels something.
void Host::leave() {
  const std::uint64_t how = random_.below(6);
  if (how > 1 && !scene_.asked.empty()) cancel(*scene_.asked.at(random_.below(scene_.asked.size())));
  if (how > 1) return;
  scene_.diary.add(how == 0 ? "close" : "a host lets go of the session");
  if (how == 0 && !scene_.closed) scene_.closed = scene_.scheduler.now();
  if (how == 0) return session_->close();
  scene_.letGo = true;
  session_ = nullptr;
}

}  // namespace kwtsdk::session_campaign
