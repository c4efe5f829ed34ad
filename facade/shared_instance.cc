#include <cstdlib>
#include <utility>

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/version.h>

#include "platform/posix/host_call.h"
#include "platform/posix/platform_defaults.h"
#include "platform/threads/mutex.h"

namespace kwtsdk {

const double kwtsdkVersionNumber = 0.5;
const char kwtsdkVersionString[] = "@(#)PROGRAM:kwtsdk  PROJECT:KWT-SDK-0.5\n";

namespace {

// Never destroyed: its queues' threads may run until the process ends, and must find their mutexes then.
struct SharedInstance {
  internal::Mutex mutex;
  Platform platform KWT_GUARDED_BY(mutex);
  std::shared_ptr<KWTBluetoothHelper> helper KWT_GUARDED_BY(mutex);

  static SharedInstance& get() {
    static auto* const instance = new SharedInstance;
    return *instance;
  }
};

// The settings of an instance that never goes reach their file when the process ends.
void flushAtExit(std::shared_ptr<Settings> settings) {
  static auto* const kept = new std::shared_ptr<Settings>(std::move(settings));
  std::atexit([] {
    try {
      (*kept)->flush();
    } catch (...) {  // out of memory: the file is as it was
    }
  });
}

}  // namespace

std::shared_ptr<KWTBluetoothHelper> KWTBluetoothHelper::shared() {
  SharedInstance& instance = SharedInstance::get();
  const internal::MutexLock lock(instance.mutex);
  if (!instance.helper) {
    const bool defaultSettings = instance.platform.settings == nullptr;
    instance.platform = internal::withDefaults(std::move(instance.platform));
    if (defaultSettings) flushAtExit(instance.platform.settings);
    instance.helper = create(instance.platform);
  }
  return instance.helper;
}

void KWTBluetoothHelper::setSharedPlatform(Platform platform) {
  SharedInstance& instance = SharedInstance::get();
  std::shared_ptr<Log> log;
  {
    const internal::MutexLock lock(instance.mutex);
    if (instance.helper) {
      log = instance.platform.log;
    } else {
      std::swap(instance.platform, platform);
    }
  }
  if (log) internal::Logger(log).error("setSharedPlatform has no effect: shared() has been called already");
}

}  // namespace kwtsdk
