#pragma once

#include <gtest/gtest.h>

#include <stop_token>
#include <string_view>

#include <kwtsdk/sim/seeded_faults.h>

#include "tests/session/session_host.h"
#include "tests/support/choices.h"

namespace kwtsdk::session_campaign {

using namespace std::literals;
using session::Effect;
using session::Errc;
using session::Limits;
using session::Operation;
using session::Result;
using session::Session;
using testing::Choices;

struct Profile {
  const char* name;
  sim::FaultRates rates;  // in all 1: how often is another matter
};

/// What happened, with its virtual times: a failed scenario shows it.
struct Diary {
  void add(const std::string& what) {
    text += std::to_string(std::chrono::duration<double>(scheduler.now()).count()) + " " + what + "\n";
  }
  sim::VirtualTimeScheduler& scheduler;
  std::string text{};
};

/// Remembers which faults there were. Delays prefer the limits that hosts choose, so that an answer and a
/// limit meet at one instant.
class NotedFaults : public sim::FaultPlan {
 public:
  NotedFaults(const Profile& profile, const Choices& choices, Diary& diary)
      : seeded_(choices.seed(), profile.rates), random_(choices.with(choices.seed() + 1)), diary_(diary) {
    static constexpr std::array<std::uint64_t, 4> kRarities{6, 40, 200, 1000};
    rarity_ = kRarities.at(random_.below(kRarities.size()));
    left_ = 1 + random_.below(12);
  }

  sim::FaultAction next(sim::LinkEvent event) override {
    if (left_ == 0 || random_.below(rarity_) != 0) return {};
    sim::FaultAction action = seeded_.next(event);
    if (action.fault == sim::Fault::none) return {};
    static constexpr std::array kDelays{1s, 2s, 5s, 10s, 12s};
    if (random_.below(2) == 0) action.delay = kDelays.at(random_.below(kDelays.size()));
    --left_;
    last_.at(static_cast<std::size_t>(action.fault)) = diary_.scheduler.now();
    static constexpr std::array kEvents{"write", "acknowledgement", "notification", "subscription"};
    static constexpr std::array kNames{"none",    "drop",   "delay",     "duplicate",
                                       "corrupt", "refuse", "disconnect"};
    diary_.add(std::string("  ") + kNames.at(static_cast<std::size_t>(action.fault)) + " of a " +
               kEvents.at(static_cast<std::size_t>(event)));
    return action;
  }

  /// Whether one of this kind began at this moment or later.
  bool since(sim::Fault fault, Duration moment) const {
    const auto& last = last_.at(static_cast<std::size_t>(fault));
    return last && *last >= moment;
  }
  bool any() const {
    return std::ranges::any_of(last_, [](const auto& last) { return last.has_value(); });
  }

 private:
  sim::SeededFaults seeded_;
  Choices random_;
  Diary& diary_;
  std::uint64_t rarity_ = 0, left_ = 0;
  std::array<std::optional<Duration>, 7> last_{};
};

/// One operation: when it was asked, when it was asked to end, and how often it has ended.
struct Asked {
  std::string name;
  Duration began{0};
  Duration leaving{100ms};  // how long it may take to leave the recorder in order
  std::optional<Duration> limit{};
  std::function<void()> cancel{};
  std::stop_source stop{};
  std::optional<Duration> cancelled{};
  int thens = 0;
  bool endless = false;  // until somebody ends it
};
using AskedPtr = std::shared_ptr<Asked>;

/// What a recorder has been, from a moment on.
struct Moment {
  Duration from{0};
  std::uint32_t battery = 0, firstId = 0;
  std::size_t count = 0;
};

/// What the host threads of one scenario share.
struct Scene : testing::RecorderScene {
  Scene(const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime, const std::string& folder,
        const Profile& chosen, const Choices& choices, Diary& kept);

  bool past(const std::function<bool(const Moment&)>& was, Duration since) const;
  void remember();
  void ended(Asked& asked, const std::error_code& code);
  void checkEnd(const Asked& asked, const std::error_code& code) const;
  void checkLost() const;

  /// Nothing that can change a byte or a number happened since then.
  bool undamaged(Duration since) const { return !isHostile && !faults->since(sim::Fault::corrupt, since); }
  bool linkTrouble() const { return isHostile || cut || faults->any(); }

  Diary& diary;
  std::shared_ptr<NotedFaults> faults;
  std::vector<Moment> moments;
  std::uint32_t battery = 80;
  std::set<std::string> versions{"1.2.3"};
  std::set<std::string> installed;
  std::string existing;  // what was in a file before
  std::vector<AskedPtr> asked;
  std::shared_ptr<Semaphore> endings;
  unsigned awaited = 0;  // signals of `endings`
  std::optional<Duration> closed;
  bool cut = false;        // the link, by the host
  bool letGo = false;      // of the session, by one of the hosts
  bool isHostile = false;  // bytes that no recorder sends, a disk that fails: what was checked is right
  unsigned files = 0, recordings = 0;

 private:
  Scene(const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime, const std::string& folder, Diary& kept,
        const std::shared_ptr<NotedFaults>& plan);
};

}  // namespace kwtsdk::session_campaign
