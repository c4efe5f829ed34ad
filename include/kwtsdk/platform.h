#pragma once

#include <memory>

#include <kwtsdk/log.h>
#include <kwtsdk/opus_converter.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/settings.h>

namespace kwtsdk {

/// What a facade stands on. Null members are filled with the platform's own: threadScheduler(),
/// fileSettings() on
/// ".local/state/kwtsdk/settings" below the user's home directory (from the password database: the library
/// reads no environment), systemLog(). There is no own converter: without one every conversion fails.
struct Platform {
  std::shared_ptr<Scheduler> scheduler;
  std::shared_ptr<Settings> settings;
  std::shared_ptr<OpusConverter> opusConverter;
  std::shared_ptr<Log> log;
};

}  // namespace kwtsdk
