#include <iostream>

#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/simulated_link.h>

int main() {
  namespace sim = kwtsdk::sim;
  const auto recorder = std::make_shared<sim::RecorderModel>(std::make_shared<sim::MemoryStore>());
  const auto link = sim::SimulatedLink::create(kwtsdk::threadScheduler(), recorder);
  const auto helper = kwtsdk::KWTBluetoothHelper::create();
  link->attach(helper);

  const std::int64_t level = helper->getPower();  // blocks, at most 5 s
  std::cout << "battery level " << level << '\n';
  return level > 0 ? 0 : 1;
}
