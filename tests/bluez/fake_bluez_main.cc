// A fake bluetoothd for tests of programs: fake-bluez STORE [COMMAND...]. It serves the recorder of that
// folder on the bus of DBUS_SYSTEM_BUS_ADDRESS, says "ready", obeys a line of commands at a time from
// standard input, answering each with "done", and ends with its input. "await CALL" waits for a call to it.

#include <iostream>

#include <kwtsdk/sim/simulated_recorder.h>

#include "sim/samples/microphones.h"
#include "tests/bluez/fake_bluez.h"

int main(int count, char** arguments) try {
  if (count < 2) throw std::runtime_error("usage: fake-bluez STORE [COMMAND...]");
  const auto scheduler = kwtsdk::threadScheduler();
  const auto journal = std::make_shared<kwtsdk::testing::Journal>(*scheduler);
  auto recorder = kwtsdk::sim::openSimulatedRecorder(scheduler, arguments[1]);
  if (!recorder.hears) recorder.model->setMicrophone(kwtsdk::sim::microphoneIn(arguments[1]));
  kwtsdk::testing::FakeBluez bluez(*scheduler, std::move(recorder.link), journal);
  for (int i = 2; i < count; ++i) bluez.obey(arguments[i]);
  bluez.obey("start");
  std::cout << "ready" << std::endl;
  for (std::string line; std::getline(std::cin, line);) {
    constexpr std::string_view await = "await ";
    line.starts_with(await) ? void(journal->await(line.substr(await.size()))) : bluez.obey(line);
    std::cout << "done" << std::endl;
  }
} catch (const std::exception& failure) {
  std::cerr << "fake-bluez: " << failure.what() << '\n';
  return 1;
}
