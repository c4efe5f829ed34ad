#pragma once

#include <algorithm>
#include <unordered_map>

#include <kwtsdk/gatt/peripheral.h>

#include "tests/support/choices.h"
#include "tests/support/sim_host.h"

namespace kwtsdk::campaign {

using namespace std::literals;
using testing::Choices;

/// What happened in a scenario that may rightly cost an operation its report: the required behaviour itself
/// loses a command when a blocking form of another thread ends, the watchdog fires, or the link misbehaves.
struct Ledger {
  int faults = 0;                 // anything but a delay
  int timeouts = 0;               // "Timeout!" lines
  int clears = 0;                 // commands that a host gave up
  int deletions = 0;              // "Delete fileId" lines
  std::array<int, 2> clearing{};  // per host thread: operations under way that clear the pending command
  std::array<int, 2> cleared{};   // begun so far
  int downloadsFailed = 0, downloads = 0;
};

/// What happened, and what a failed scenario shows: operations, faults and the library's log, with their
/// virtual times.
struct Diary {
  void add(std::string_view what) {
    const auto time = std::chrono::duration<double>(scheduler.now()).count();
    text += std::to_string(time).append(" ").append(what).append("\n");
  }

  sim::VirtualTimeScheduler& scheduler;
  Ledger ledger{};
  std::string text{};
};

/// Gives way at every line, so that threads meet inside the library's own steps.
struct DiaryLog : Log {
  explicit DiaryLog(Diary& kept) : diary(kept) {}
  void write(LogLevel level, std::string_view line) override {
    diary.scheduler.preemptionPoint();
    if (level != LogLevel::debug) diary.add(line);
    if (line == "Timeout!") ++diary.ledger.timeouts;
    if (line.starts_with("Delete fileId")) ++diary.ledger.deletions;
  }
  Diary& diary;
};

enum class Trouble { none, clears, delays, any };

struct Profile {
  const char* name;
  int hosts;      // threads that use the facade, 1 or 2
  bool blocking;  // blocking forms and what is made of them: listing, download, deletion of the first file
  Trouble trouble;
};

/// Up to a few faults per scenario. Delays prefer the library's own time-outs, so that a reply and a time-out
/// meet at one instant.
class DiaryFaults : public sim::FaultPlan {
 public:
  DiaryFaults(const Choices& choices, Trouble trouble, Diary& diary)
      : random_(choices), trouble_(trouble), diary_(diary) {}

  sim::FaultAction next(sim::LinkEvent event) override {
    if (trouble_ < Trouble::delays || left_ == 0 || random_.below(12) != 0) return {};
    const sim::FaultAction action = choose();
    if (!sim::faultApplies(action.fault, event)) return {};
    --left_;
    static constexpr std::array kEvents{"write", "acknowledgement", "notification", "subscription"};
    static constexpr std::array kNames{"none",    "drop",   "delay",     "duplicate",
                                       "corrupt", "refuse", "disconnect"};
    diary_.add(std::string(kNames.at(static_cast<std::size_t>(action.fault))) + " of a " +
               kEvents.at(static_cast<std::size_t>(event)));
    if (action.fault != sim::Fault::delay) ++diary_.ledger.faults;
    return action;
  }

 private:
  sim::FaultAction choose() {
    static constexpr std::array<Duration, 6> kDelays{5s, 5s, 2s, 1s, 4900ms, 7s};
    const bool any = trouble_ == Trouble::any && random_.below(2) == 0;
    return {.fault = any ? static_cast<sim::Fault>(1 + random_.below(6)) : sim::Fault::delay,  // but none
            .delay = kDelays.at(random_.below(kDelays.size())),
            .position = random_.below(40)};
  }

  Choices random_;
  Trouble trouble_;
  Diary& diary_;
  int left_ = 3;
};

/// Passes everything on and gives way around it, remembers which subscriptions are asked for at this moment,
/// and does to the facade's fields what hosts do beside their operations.
class MeddlingPeripheral : public gatt::ForwardingPeripheral {
 public:
  MeddlingPeripheral(std::shared_ptr<Peripheral> peripheral, Diary& diary, KWTBluetoothHelper& helper,
                     const Profile& profile, const Choices& choices)
      : ForwardingPeripheral(std::move(peripheral)),
        diary_(diary),
        helper_(helper),
        clears_(profile.trouble == Trouble::clears),
        random_(choices) {}

  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType type) override {
    wrap();  // no answer can have come yet
    giveWay();
    ForwardingPeripheral::writeValue(value, to, type);
    giveWay();
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& of) override {
    giveWay();
    on_[of->UUID()] = enabled;
    ForwardingPeripheral::setNotifyValue(enabled, of);
    giveWay();
  }
  bool subscribed() const {
    return std::ranges::any_of(on_, [](const auto& entry) { return entry.second; });
  }

  /// Callbacks of the host's own around the library's, which still call them. Only while none of these can be
  /// running: one that has ended would make the facade busy for ever.
  void wrap() {
    const auto preempt = [this] { diary_.scheduler.preemptionPoint(); };
    auto completion = helper_.completionBlock(), receiver = helper_.writeDataBlock();
    if (completion && random_.below(4) == 0)
      helper_.setCompletionBlock(testing::wrapped(std::move(completion), preempt));
    if (receiver && random_.below(4) == 0)
      helper_.setWriteDataBlock(testing::wrapped(std::move(receiver), preempt));
  }

 private:
  /// Some hosts then give up whatever is pending.
  void giveWay() {
    diary_.scheduler.preemptionPoint();
    if (!clears_ || random_.below(12) != 0 || !helper_.completionBlock()) return;
    diary_.add("the host clears completionBlock");
    ++diary_.ledger.clears;
    helper_.setCompletionBlock(nullptr);
  }

  Diary& diary_;
  KWTBluetoothHelper& helper_;
  const bool clears_;
  Choices random_;
  std::unordered_map<Uuid, bool> on_;
};

/// What the host threads of one scenario share.
struct Scene {
  Diary& diary;
  const Profile& profile;
  sim::MemoryStore& store;
  sim::RecorderModel& model;
  sim::SimulatedLink& link;
  MeddlingPeripheral& peripheral;
  KWTBluetoothHelper& helper;
  std::string path;
  sim::VirtualTimeScheduler& scheduler = diary.scheduler;
  Ledger& ledger = diary.ledger;
  std::function<void()> onReport{};  // what a completion does besides
};

}  // namespace kwtsdk::campaign
