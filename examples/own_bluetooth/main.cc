// A host with a Bluetooth stack of its own saves every recording into a folder. What it takes is in
// radio_link.h; from there on it is a host as any other.
#include <iostream>

#include <kwtsdk/session/session.h>

#include "radio_link.h"

int main(int argc, char** argv) try {
  using namespace kwtsdk::session;
  if (argc != 3) {
    std::cerr << "usage: own_bluetooth STORE FOLDER    from a simulated recorder's folder into another one\n";
    return 2;
  }
  const auto session = Session::create(std::make_shared<RadioLink>(argv[1]));
  const auto result = session->downloadAll(argv[2], {}, Limits().reconnects(20)).wait();
  if (const Harvest* const harvest = result.achieved()) {
    for (const Saved& saved : harvest->saved) std::cout << saved.file.string() << '\n';
  }
  if (!result) std::cerr << result.error().text() << '\n';
  return result ? 0 : 1;
} catch (const std::exception& error) {
  std::cerr << "own_bluetooth: " << error.what() << '\n';
  return 1;
}
