#include <mutex>
#include <utility>

#include <kwtsdk/bluetooth_helper.h>

#include "channel/logger.h"
#include "platform/platform_defaults.h"

namespace kwtsdk {
namespace {

// Never destroyed: its queues' threads may run until the process ends, and must find their mutexes then.
struct SharedInstance {
  std::mutex mutex;
  Platform platform;
  std::shared_ptr<KWTBluetoothHelper> helper;

  static SharedInstance& get() {
    static auto* const instance = new SharedInstance;
    return *instance;
  }
};

}  // namespace

std::shared_ptr<KWTBluetoothHelper> KWTBluetoothHelper::shared() {
  SharedInstance& instance = SharedInstance::get();
  const std::lock_guard lock(instance.mutex);
  if (!instance.helper) {
    instance.platform = internal::withDefaults(std::move(instance.platform));
    instance.helper = create(instance.platform);
  }
  return instance.helper;
}

void KWTBluetoothHelper::setSharedPlatform(Platform platform) {
  SharedInstance& instance = SharedInstance::get();
  std::shared_ptr<Log> log;
  {
    const std::lock_guard lock(instance.mutex);
    if (instance.helper) {
      log = instance.platform.log;
    } else {
      std::swap(instance.platform, platform);
    }
  }
  if (log) internal::Logger(log).error("setSharedPlatform has no effect: shared() has been called already");
}

}  // namespace kwtsdk
