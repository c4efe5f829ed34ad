#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include <kwtsdk/sim/fault_plan.h>

namespace kwtsdk::sim {

/// Faults at chosen events, counted from 1 for each kind.
class KWTSDK_EXPORT ScriptedFaults : public FaultPlan {
 public:
  /// One fault a line: the kind of event, its number, what happens. `#` begins a comment.
  ///   notification 195 disconnect
  ///   notification 10 delay 250ms
  ///   notification 3 corrupt 12
  ///   acknowledgement 2 drop
  ///   write 3 refuse
  /// Throws std::runtime_error naming the line that cannot be read.
  static std::shared_ptr<ScriptedFaults> fromText(std::string_view text);

  /// Replaces an earlier action for the same event.
  void add(LinkEvent event, std::uint64_t number, FaultAction action);

  FaultAction next(LinkEvent event) override;

 private:
  std::map<std::pair<LinkEvent, std::uint64_t>, FaultAction> actions_;
  std::array<std::uint64_t, 4> seen_{};  // by LinkEvent
};

}  // namespace kwtsdk::sim
