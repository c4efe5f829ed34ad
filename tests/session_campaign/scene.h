#pragma once

#include <gtest/gtest.h>

#include <stop_token>

#include <kwtsdk/sim/seeded_faults.h>

#include "sim/virtual_time/random.h"
#include "tests/session/session_host.h"
#include "tests/support/campaign.h"

namespace kwtsdk::session_campaign {

using namespace std::literals;
using session::Effect;
using session::Errc;
using session::Limits;
using session::Operation;
using session::Result;
using session::Session;
using sim::Random;
using testing::Diary;

struct Profile {
  const char* name;
  sim::FaultRates rates;  // in all 1: how often is another matter
};

/// Remembers which faults there were. Delays prefer the limits that hosts choose, so that an answer and a
/// limit meet at one instant.
class NotedFaults : public sim::FaultPlan {
 public:
  NotedFaults(std::uint64_t seed, const Profile& profile, Diary& diary)
      : seeded_(seed, profile.rates), random_(seed + 1), diary_(diary) {
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
    last_[action.fault] = diary_.scheduler.now();
    diary_.add(action.fault, event);
    return action;
  }

  /// Whether one of this kind began at this moment or later.
  bool since(sim::Fault fault, Duration moment) const {
    const auto last = last_.find(fault);
    return last != last_.end() && last->second >= moment;
  }
  bool any() const { return !last_.empty(); }

 private:
  sim::SeededFaults seeded_;
  Random random_;
  Diary& diary_;
  std::uint64_t rarity_ = 0, left_ = 0;
  std::map<sim::Fault, Duration> last_;
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

/// What the host threads of one scenario share.
struct Scene : testing::RecorderScene {
  Scene(const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime, const std::string& folder, Diary& kept,
        const std::shared_ptr<NotedFaults>& plan);

  void setLevel(std::uint32_t level);
  bool hadLevel(std::uint64_t level, Duration since) const;
  void ended(const Asked& operation, const std::error_code& code) const;
  void checkLost() const;

  /// Nothing that can change a byte or a number happened since then.
  bool undamaged(Duration since) const { return !faults->since(sim::Fault::corrupt, since); }

  Diary& diary;
  std::shared_ptr<NotedFaults> faults;
  std::vector<std::pair<Duration, std::uint32_t>> levels{{Duration(0), 80}};  // of the battery, from then on
  std::set<std::string> versions{"1.2.3"};
  std::set<std::string> installed;
  std::string existing;  // what was in a file before
  std::vector<AskedPtr> asked;
  std::shared_ptr<Semaphore> endings;
  unsigned awaited = 0;  // signals of `endings`
  std::optional<Duration> closed;
  bool cut = false;    // the link, by the host
  bool letGo = false;  // of the session, by one of the hosts
  unsigned files = 0;
};

}  // namespace kwtsdk::session_campaign
