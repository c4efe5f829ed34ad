#pragma once

#include <memory>
#include <string>

#include <kwtsdk/scheduler.h>

#include "tools/traffic.h"

namespace kwtsdk::tool {

/// Writes what passes into a new btsnoop file, as the packets that a Bluetooth controller would have seen.
/// Handles and the address are made up, since the Bluetooth service tells none; bytes, order and times are
/// the link's. Each packet is the kernel's at once. Throws a Failure when there is such a file already, or it
/// cannot be made.
std::shared_ptr<TrafficObserver> traceInto(const std::shared_ptr<Scheduler>& scheduler,
                                           const std::string& file);

}  // namespace kwtsdk::tool
