#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include <kwtsdk/log.h>
#include <kwtsdk/sim/fault_plan.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "sim/virtual_time/random.h"

namespace kwtsdk::campaign {

using sim::Random;

/// What happened in a scenario that may rightly cost an operation its report: the required behaviour itself
/// loses a command when a blocking form of another thread ends, the watchdog fires, or the link misbehaves.
struct Ledger {
  int faults = 0;                 // anything but a delay
  int timeouts = 0;               // "Timeout!" lines
  int deletions = 0;              // "Delete fileId" lines
  std::array<int, 2> clearing{};  // per host thread: operations under way that clear the pending command
  std::array<int, 2> cleared{};   // begun so far
  int downloadsFailed = 0, downloads = 0;
};

/// What a failed scenario shows: operations, faults and the library's log, with their virtual times.
class Trace {
 public:
  explicit Trace(const Scheduler& scheduler) : scheduler_(scheduler) {}
  void add(std::string_view what) {
    const auto time = std::chrono::duration<double>(scheduler_.now()).count();
    text_ += std::to_string(time).append(" ").append(what).append("\n");
  }
  const std::string& text() const { return text_; }

 private:
  const Scheduler& scheduler_;
  std::string text_;
};

/// Gives way at every line, so that threads meet inside the library's own steps.
class LedgerLog : public Log {
 public:
  LedgerLog(sim::VirtualTimeScheduler& scheduler, Ledger& ledger, Trace& trace)
      : scheduler_(scheduler), ledger_(ledger), trace_(trace) {}
  void write(LogLevel level, std::string_view line) override {
    scheduler_.preemptionPoint();
    if (level != LogLevel::debug) trace_.add(line);
    if (line == "Timeout!") ++ledger_.timeouts;
    if (line.starts_with("Delete fileId")) ++ledger_.deletions;
  }

 private:
  sim::VirtualTimeScheduler& scheduler_;
  Ledger& ledger_;
  Trace& trace_;
};

enum class Trouble { none, delays, any };

/// Up to a few faults per scenario. Delays prefer the library's own time-outs, so that a reply and a time-out
/// meet at one instant.
class LedgerFaults : public sim::FaultPlan {
 public:
  LedgerFaults(std::uint64_t seed, Trouble trouble, Ledger& ledger, Trace& trace)
      : random_(seed), trouble_(trouble), ledger_(ledger), trace_(trace) {}

  sim::FaultAction next(sim::LinkEvent event) override {
    if (trouble_ == Trouble::none || left_ == 0 || random_.below(12) != 0) return {};
    const sim::FaultAction action = choose();
    if (!sim::faultApplies(action.fault, event)) return {};
    --left_;
    static constexpr std::array kEvents{"write", "acknowledgement", "notification", "subscription"};
    static constexpr std::array kNames{"none",    "drop",   "delay",     "duplicate",
                                       "corrupt", "refuse", "disconnect"};
    trace_.add(std::string(kNames.at(static_cast<std::size_t>(action.fault))) + " of a " +
               kEvents.at(static_cast<std::size_t>(event)));
    if (action.fault != sim::Fault::delay) ++ledger_.faults;
    return action;
  }

 private:
  sim::FaultAction choose() {
    using namespace std::chrono_literals;
    static constexpr std::array<Duration, 6> kDelays{5s, 5s, 2s, 1s, 4900ms, 7s};
    static constexpr std::array kFaults{sim::Fault::drop,   sim::Fault::duplicate,  sim::Fault::corrupt,
                                        sim::Fault::refuse, sim::Fault::disconnect, sim::Fault::delay};
    const bool any = trouble_ == Trouble::any && random_.below(2) == 0;
    return {.fault = any ? kFaults.at(random_.below(kFaults.size())) : sim::Fault::delay,
            .delay = kDelays.at(random_.below(kDelays.size())),
            .position = random_.below(40)};
  }

  Random random_;
  Trouble trouble_;
  Ledger& ledger_;
  Trace& trace_;
  int left_ = 3;
};

}  // namespace kwtsdk::campaign
