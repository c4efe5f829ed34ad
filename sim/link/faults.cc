#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include <kwtsdk/sim/fault_plan.h>
#include <kwtsdk/sim/scripted_faults.h>
#include <kwtsdk/sim/seeded_faults.h>

#include "sim/link/script_line.h"
#include "sim/virtual_time/random.h"

namespace kwtsdk::sim {

namespace {

template <class T, std::size_t size>
std::optional<T> lookUp(const std::pair<std::string_view, T> (&table)[size], std::string_view word) {
  for (const auto& [name, value] : table) {
    if (name == word) return value;
  }
  return std::nullopt;
}

std::optional<LinkEvent> eventOf(std::string_view word) {
  static constexpr std::pair<std::string_view, LinkEvent> table[] = {
      {"write", LinkEvent::write},
      {"acknowledgement", LinkEvent::acknowledgement},
      {"notification", LinkEvent::notification},
      {"subscription", LinkEvent::subscription}};
  return lookUp(table, word);
}

std::optional<Fault> faultOf(std::string_view word) {
  static constexpr std::pair<std::string_view, Fault> table[] = {
      {"drop", Fault::drop},       {"delay", Fault::delay},   {"duplicate", Fault::duplicate},
      {"corrupt", Fault::corrupt}, {"refuse", Fault::refuse}, {"disconnect", Fault::disconnect}};
  return lookUp(table, word);
}

}  // namespace

FaultPlan::~FaultPlan() = default;

bool faultApplies(Fault fault, LinkEvent event) {
  switch (fault) {
    case Fault::duplicate:
      return event != LinkEvent::subscription;
    case Fault::corrupt:
      return event == LinkEvent::write || event == LinkEvent::notification;
    case Fault::refuse:
      return event != LinkEvent::notification;
    default:
      return true;
  }
}

// ---- By script ----

bool readFaultLine(const ScriptLine& line, ScriptedFaults& faults) {
  const auto event = eventOf(line[0]);
  if (!event) return false;
  line.expectSize(3, 4, line[0] + " NUMBER drop|delay DURATION|duplicate|corrupt [BYTE]|refuse|disconnect");
  const auto number = line.number(1, 1, std::numeric_limits<std::uint64_t>::max());
  const auto fault = faultOf(line[2]);
  if (!fault)
    line.fail("\"" + line[2] + "\" is no fault; use drop, delay, duplicate, corrupt, refuse or disconnect");
  if (!faultApplies(*fault, *event)) line.fail(line[2] + " does not apply to a " + line[0]);

  FaultAction action{*fault, {}, 0};
  if (*fault == Fault::delay) {
    line.expectSize(4, 4, line[0] + " NUMBER delay DURATION");
    action.delay = line.duration(3);
  } else if (*fault == Fault::corrupt && line.size() == 4) {
    action.position = static_cast<std::size_t>(line.number(3, 0, 65535));
  } else {
    line.expectSize(3, 3, line[0] + " NUMBER " + line[2]);
  }
  faults.add(*event, number, action);
  return true;
}

std::shared_ptr<ScriptedFaults> ScriptedFaults::fromText(std::string_view text) {
  auto faults = std::make_shared<ScriptedFaults>();
  for (const ScriptLine& line : ScriptLine::linesOf(text)) {
    if (!readFaultLine(line, *faults)) {
      line.fail("\"" + line[0] + "\" is no event; use write, acknowledgement, notification or subscription");
    }
  }
  return faults;
}

void ScriptedFaults::add(LinkEvent event, std::uint64_t number, FaultAction action) {
  actions_.insert_or_assign({event, number}, action);
}

FaultAction ScriptedFaults::next(LinkEvent event) {
  const auto found = actions_.find({event, ++seen_[static_cast<std::size_t>(event)]});
  return found == actions_.end() ? FaultAction{} : found->second;
}

// ---- By seed ----

// The seed is mixed first: the events' own seeds are consecutive, and neighbouring seeds must not overlap.
SeededFaults::SeededFaults(std::uint64_t seed, FaultRates rates)
    : nextSeed_(Random(seed).next()), rates_(rates) {}

Fault SeededFaults::choose(double chance) const {
  const std::array<std::pair<Fault, double>, 6> table{{{Fault::drop, rates_.drop},
                                                       {Fault::delay, rates_.delay},
                                                       {Fault::duplicate, rates_.duplicate},
                                                       {Fault::corrupt, rates_.corrupt},
                                                       {Fault::refuse, rates_.refuse},
                                                       {Fault::disconnect, rates_.disconnect}}};
  for (const auto& [fault, rate] : table) {
    if (chance < rate) return fault;
    chance -= rate;
  }
  return Fault::none;
}

FaultAction SeededFaults::next(LinkEvent event) {
  Random random(nextSeed_++);
  FaultAction action{choose(static_cast<double>(random.next() >> 11) * 0x1p-53), {}, 0};
  const auto longest = static_cast<std::uint64_t>(std::max<Duration::rep>(rates_.longestDelay.count(), 0));
  action.delay = Duration(static_cast<Duration::rep>(random.below(longest + 1)));
  action.position = static_cast<std::size_t>(random.next());
  return faultApplies(action.fault, event) ? action : FaultAction{};
}

}  // namespace kwtsdk::sim
