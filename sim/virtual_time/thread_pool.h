#pragma once

namespace kwtsdk::sim::virtual_time {

struct SimThread;

/// Lets a simulated thread run: wakes the operating-system thread that it has, or gives it one. Those are
/// kept from one scheduler to the next, because starting one costs more than most scenarios.
void handOverTo(SimThread& next) noexcept;

}  // namespace kwtsdk::sim::virtual_time
