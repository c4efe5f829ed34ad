#include "platform/bluez/departures.h"

#include <utility>

namespace kwtsdk::bluez {

std::shared_ptr<Departures> Departures::ofThisProcess() {
  static const auto all = std::make_shared<Departures>();
  return all;
}

void Departures::begin(const std::string& address) {
  const internal::MutexLock lock(mutex_);
  ++underWay_[address].count;
}

void Departures::end(const std::string& address) {
  std::vector<std::shared_ptr<Semaphore>> waiters;
  {
    const internal::MutexLock lock(mutex_);
    const auto found = underWay_.find(address);
    if (--found->second.count > 0) return;
    waiters = std::move(found->second.waiters);
    underWay_.erase(found);
  }
  for (const auto& waiter : waiters) waiter->signal();
}

bool Departures::await(Scheduler& scheduler, const std::string& address, Duration limit) {
  const auto ended = scheduler.semaphore("kwt.bluez.left");
  {
    const internal::MutexLock lock(mutex_);
    const auto found = underWay_.find(address);
    if (found == underWay_.end()) return true;
    found->second.waiters.push_back(ended);
  }
  return ended->wait(limit);
}

}  // namespace kwtsdk::bluez
