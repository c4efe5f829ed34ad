#pragma once

#include <memory>

#include <kwtsdk/log.h>
#include <kwtsdk/opus_converter.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/settings.h>

namespace kwtsdk {

/// What a facade stands on. Null members are filled with the platform's own: threadScheduler(),
/// fileSettings() on ".local/state/kwtsdk/settings" below the user's home directory (from the password
/// database: the library reads no environment), systemLog(), and the converter of the library kwtsdk_opus,
/// which is loaded at the first conversion from the folder of this library or where the system looks for
/// libraries. If it is not there, conversions fail and the log says so; a program with static libraries sets
/// opus::opusFileConverter() here.
struct Platform {
  std::shared_ptr<Scheduler> scheduler;
  std::shared_ptr<Settings> settings;
  std::shared_ptr<OpusConverter> opusConverter;
  std::shared_ptr<Log> log;
};

}  // namespace kwtsdk
