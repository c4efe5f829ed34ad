// Installs a firmware image; Enter cancels, which leaves the recorder as it was.
#include <iostream>
#include <thread>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/session/adapters.h>

int main(int, char** argv) {
  using namespace kwtsdk::session;
  const auto session =
      Session::create(linkOver(kwtsdk::bluez::Device::create(kwtsdk::threadScheduler(), argv[1])));
  std::stop_source stop;
  std::thread([stop]() mutable {
    std::cin.get();
    stop.request_stop();
  }).detach();
  auto update = session->update(argv[2], Limits(stop.get_token()).reconnects(2));
  update.onProgress([](const ProgressReport& progress) { std::cerr << '\r' << progress.text(); });
  const auto result = update.wait();
  if (result)
    std::cout << '\n' << result->before << " -> " << result->after << '\n';
  else if (result.error() == Errc::cancelled)
    std::cout << "\nCancelled; nothing was installed.\n";
  else
    std::cerr << '\n' << result.error().text() << '\n';
  return result ? 0 : 1;
}
