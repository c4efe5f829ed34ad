#include "tools/recorder.h"

#include <functional>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/session/adapters.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include "sim/link/ending_elsewhere.h"
#include "sim/samples/microphones.h"
#include "tools/choice.h"
#include "tools/output.h"

namespace kwtsdk::tool {
namespace {

const char* textOf(bluez::ConnectStep step) {
  switch (step) {
    case bluez::ConnectStep::searching:
      return "Looking for the recorder...";
    case bluez::ConnectStep::connecting:
      return "Connecting...";
    case bluez::ConnectStep::discovering:
      return "Asking what it can do...";
  }
  return "";
}

/// Shows at a terminal how far a connection is.
class ShownDevice {
 public:
  explicit ShownDevice(const Environment& environment)
      : scheduler_(environment.scheduler),
        device_(bluez::Device::create(scheduler_, chosenRecorder(environment), environment.adapter)) {}

  MaybeError connect() {
    TerminalLine line(*scheduler_);
    bluez::ConnectOptions options;
    options.onStep = [&](bluez::ConnectStep step) { line.show(textOf(step)); };
    auto error = device_->connect(options);
    line.clear();
    return error;
  }
  void disconnect() { device_->disconnect(); }
  void setEvents(bluez::Device::Event didWrite, bluez::Device::Event didUpdate) {
    device_->setEvents(std::move(didWrite), std::move(didUpdate));
  }
  void setOnDisconnect(std::function<void()> onDisconnect) {
    device_->setOnDisconnect(std::move(onDisconnect));
  }
  std::shared_ptr<Peripheral> peripheral() const { return device_->peripheral(); }
  std::vector<std::shared_ptr<Characteristic>> characteristics() const { return device_->characteristics(); }

 private:
  const std::shared_ptr<Scheduler> scheduler_;
  const std::shared_ptr<bluez::Device> device_;
};

/// Signalled when the simulated recorder that was opened last has ended; null: none was.
std::shared_ptr<Semaphore>& lastEnd() {
  static std::shared_ptr<Semaphore> end;
  return end;
}

/// Two cannot have one folder, so this waits until the last one has ended, which it does elsewhere.
std::shared_ptr<session::Link> linkToFolder(const Environment& environment) {
  constexpr Duration longest = std::chrono::minutes(1);
  if (const auto end = std::exchange(lastEnd(), nullptr)) end->wait(longest);
  const auto recorder = sim::openSimulatedRecorder(environment.scheduler, environment.simulatedFolder);
  for (const std::string& warning : recorder.warnings) std::cerr << "kwt: " << printable(warning) << '\n';
  if (!recorder.hears) recorder.model->setMicrophone(sim::microphoneIn(environment.simulatedFolder));
  const auto end = environment.scheduler->semaphore("kwt.sim.end");
  lastEnd() = end;
  return session::linkOver(
      sim::endingElsewhere(environment.scheduler, recorder.link, [end] { end->signal(); }));
}

std::shared_ptr<session::Link> linkTo(const Environment& environment) {
  if (environment.simulatedFolder.empty())
    return session::linkOver(std::make_shared<ShownDevice>(environment));
  return linkToFolder(environment);
}

}  // namespace

std::shared_ptr<session::Session> openRecorder(const Environment& environment) {
  Platform platform;
  platform.scheduler = environment.scheduler;
  return session::Session::create(observed(linkTo(environment), environment.observers),
                                  session::Options().platform(std::move(platform)));
}

session::Limits limitsOfQuery(const Environment& environment) {
  // Silence ends what hangs; connecting may take a minute.
  constexpr Duration longest = std::chrono::hours(1);
  return session::Limits(environment.stop).timeout(longest).silence(kAnswerTime).reconnects(0);
}

session::RecordingInfo firstRecording(const Environment& environment, session::Session& recorder) {
  const auto recordings = valueOf(recorder.recordings(limitsOfQuery(environment)).wait());
  if (!recordings.empty()) return recordings.front();
  throw explained(session::Failure(session::Errc::storeEmpty, ""));
}

}  // namespace kwtsdk::tool
