#include <iostream>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/kwtsdk.h>

int main(int argc, char** argv) {
  const auto device = kwtsdk::bluez::Device::create(kwtsdk::threadScheduler(), argc > 1 ? argv[1] : "");
  if (const auto error = device->connect()) {
    std::cerr << error->localizedDescription() << '\n';
    return 1;
  }
  const auto helper = kwtsdk::KWTBluetoothHelper::create();
  device->attach(helper);
  std::cout << "battery level " << helper->getPower() << '\n';
}
