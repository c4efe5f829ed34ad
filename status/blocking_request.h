#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "channel/command_channel.h"
#include "channel/wait_cell.h"

namespace kwtsdk::internal {

/// The blocking form of an operation: `start` runs the completion form on the operation's own queue and hands
/// it a callback for the value; the calling thread waits. When the wait ends, by value or by time-out, the
/// pending command is cleared whatever it is, so that a silent device does not leave the facade busy.
template <class T>
T blockingRequest(CommandChannel& channel, QueueId queue, Duration timeout, T fallback,
                  std::function<void(std::function<void(T)>)> start) {
  const auto owner = channel.owner();
  const auto cell =
      std::make_shared<WaitCell<T>>(*channel.platform.scheduler, labelOf(queue), std::move(fallback));
  const bool queued = channel.queues.async(queue, [owner, cell, start = std::move(start)] {
    if (!cell->decided()) start([cell](T value) { cell->finish(std::move(value)); });
  });
  T value = cell->wait(queued ? timeout : Duration{0});
  channel.dispatcher.pending.clear();
  return value;
}

inline constexpr Duration kReplyTimeout = std::chrono::seconds(5);

}  // namespace kwtsdk::internal
