#pragma once

#include <cstddef>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::sim {

/// How long things take on the simulated link. By default nothing takes time.
struct LinkTiming {
  /// From sending to arrival, in both directions.
  Duration latency{0};

  /// Transmissions leave only at multiples of this, at most packetsPerInterval each time; 0: at once.
  Duration connectionInterval{0};
  unsigned packetsPerInterval = 4;

  /// The negotiated ATT MTU, within what Bluetooth allows: a notification holds at most 3 bytes less.
  static constexpr std::size_t kSmallestMtu = 23, kGreatestMtu = 517;
  std::size_t mtu = 247;
};

}  // namespace kwtsdk::sim
