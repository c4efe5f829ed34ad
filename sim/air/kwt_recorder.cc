// kwt-recorder: the simulated recorder on a real Bluetooth controller.

#include <signal.h>
#include <sys/signalfd.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/posix/files.h"
#include "sim/air/recorder_server.h"
#include "sim/link/ending_elsewhere.h"
#include "sim/samples/microphones.h"

namespace kwtsdk::sim {
namespace {

struct Options {
  std::string adapter, name = "Simulated recorder", folder;
  std::optional<std::size_t> mtu;
};

/// The exit status, where nothing is left to do.
std::optional<int> parse(int argc, char** argv, Options& options) {
  CLI::App app{"Serves a folder as a voice recorder over Bluetooth Low Energy"};
  app.set_version_flag("--version", "kwt-recorder " KWT_VERSION);
  app.add_option("--adapter", options.adapter,
                 "Bluetooth controller, such as hci1, or its address (default: the first)")
      ->type_name("NAME");
  app.add_option("--mtu", options.mtu,
                 "Greatest ATT MTU to offer, instead of the script's (247 without either)")
      ->check(CLI::Range(LinkTiming::kSmallestMtu, LinkTiming::kGreatestMtu))
      ->type_name("BYTES");
  app.add_option("--name", options.name, "Name that centrals show")
      ->check([](const std::string& name) {
        return !name.empty() && name.size() <= Advertiser::kLongestName
                   ? std::string()
                   : "the name needs 1 to " + std::to_string(Advertiser::kLongestName) + " bytes";
      })
      ->type_name("TEXT");
  app.add_option(
         "FOLDER", options.folder,
         "Its Opus files are the recordings, and are deleted with them; it hears device/microphone.wav, or a "
         "melody, and follows device/script")
      ->required();
  app.footer("Runs until Ctrl-C or SIGTERM. Needs root or the capability CAP_NET_ADMIN.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    constexpr int usage = 2;
    return app.exit(error) == 0 ? 0 : usage;
  }
  return std::nullopt;
}

/// No rate limits a virtual controller, and the central's socket overflows unless something does.
void pace(LinkTiming& timing) {
  if (timing.connectionInterval > Duration::zero()) return;
  timing.connectionInterval = std::chrono::microseconds(2500);
  timing.packetsPerInterval = 1;
}

SimulatedRecorder open(const std::shared_ptr<Scheduler>& scheduler, const Options& options) {
  auto recorder = openSimulatedRecorder(scheduler, options.folder, [&options](LinkTiming& timing) {
    timing.mtu = options.mtu.value_or(timing.mtu);
    pace(timing);
  });
  for (const std::string& warning : recorder.warnings) std::cerr << "kwt-recorder: " << warning << '\n';
  if (!recorder.hears) recorder.model->setMicrophone(microphoneIn(options.folder));
  recorder.link = endingElsewhere(scheduler, recorder.link);
  return recorder;
}

/// Readable once SIGINT or SIGTERM has come. To be made before any thread starts.
internal::Descriptor stopSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGINT);
  ::sigaddset(&signals, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  internal::Descriptor readable(::signalfd(-1, &signals, SFD_CLOEXEC));
  if (readable.get() < 0) {
    throw std::runtime_error(std::string("Signals cannot be waited for (") + std::strerror(errno) +
                             "): close other programs and start again.");
  }
  return readable;
}

void serve(const Options& options) {
  const internal::Descriptor stop = stopSignals();
  const auto scheduler = threadScheduler();
  RecorderServer server(scheduler, open(scheduler, options), options.adapter, options.name);
  std::cout << "Serving " << options.folder << " as " << options.name << ", "
            << server.controller().address.toString() << std::endl;
  server.run(stop.get());
}

}  // namespace
}  // namespace kwtsdk::sim

int main(int argc, char** argv) {
  ::signal(SIGPIPE, SIG_IGN);
  try {
    kwtsdk::sim::Options options;
    if (const auto status = kwtsdk::sim::parse(argc, argv, options)) return *status;
    kwtsdk::sim::serve(options);
    return 0;
  } catch (const std::exception& exception) {
    std::cerr << "kwt-recorder: " << exception.what() << '\n';
    return 1;
  }
}
