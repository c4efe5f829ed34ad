#pragma once

#include <memory>

#include <kwtsdk/scheduler.h>

#include "tools/traffic.h"

namespace kwtsdk::tool {

/// Tells on standard error what passes, one line each, with the time since now and what it means.
std::shared_ptr<TrafficObserver> wireLog(const std::shared_ptr<Scheduler>& scheduler);

}  // namespace kwtsdk::tool
