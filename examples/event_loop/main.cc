// A host with a user interface: all that it asks of the library, and all that the library tells it, is one
// short piece of work on its event loop, which no download holds up.
#include <filesystem>
#include <iostream>

#include <kwtsdk/session/adapters.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include "event_loop.h"

namespace {

using namespace kwtsdk::session;

/// Nothing else knows what recorder it is. Over BlueZ, with an address instead of a folder:
/// linkOver(kwtsdk::bluez::Device::create(kwtsdk::threadScheduler(), address)).
std::shared_ptr<Link> linkTo(const std::filesystem::path& store) {
  return linkOver(kwtsdk::sim::openSimulatedRecorder(kwtsdk::threadScheduler(), store).link);
}

class Window {
 public:
  explicit Window(EventLoop& loop) : loop_(loop) {}

  // The loop's work

  void download(const std::shared_ptr<Link>& link, const std::filesystem::path& folder) {
    session_ = Session::create(
        link, Options().executor([this](EventLoop::Work work) { loop_.post(std::move(work)); }));
    auto all = session_->downloadAll(folder, {}, Limits().reconnects(20));
    all.onProgress([](const ProgressReport& progress) { std::cerr << "\r\033[K" << progress.text(); });
    all.then([this](const Result<Harvest>& result) { show(result); });
  }

  int status() const { return status_; }

 private:
  void show(const Result<Harvest>& result) {
    std::cerr << '\n';
    if (const Harvest* const harvest = result.achieved()) {
      for (const Saved& saved : harvest->saved) std::cout << saved.file.string() << '\n';
    }
    if (!result) std::cerr << result.error().text() << '\n';
    status_ = result ? 0 : 1;
    loop_.quit();
  }

  EventLoop& loop_;
  int status_ = 1;
  std::shared_ptr<Session> session_;  // its end waits until it has left the recorder, and uses the others
};

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 3) {
    std::cerr << "usage: event_loop STORE FOLDER    from a simulated recorder's folder into another one\n";
    return 2;
  }
  EventLoop loop;
  Window window(loop);
  const auto link = linkTo(argv[1]);
  loop.post([&] { window.download(link, argv[2]); });
  loop.run();
  const std::chrono::duration<double, std::milli> longest = loop.longest();
  std::cout << "The event loop was held up for at most " << longest.count() << " ms.\n";
  return window.status();
} catch (const std::exception& error) {
  std::cerr << "event_loop: " << error.what() << '\n';
  return 1;
}
