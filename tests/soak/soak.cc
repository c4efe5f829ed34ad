// A session over a long time: kwtsdk_soak virtual|real [SECONDS]. Virtual: so many seconds of a recorder's
// time, with downloads, live recordings, updates, queries and links that are lost. Real: a live recording at
// twice the rate of a radio. Ends with figures, and with 1 when something was lost or memory or descriptors
// grew.

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>

#include <kwtsdk/sim/seed.h>
#include <kwtsdk/sim/seeded_faults.h>

#include "tests/session/every_operation.h"
#include "tests/support/forwarding_scheduler.h"

namespace kwtsdk::testing {
namespace {

void require(bool isSo, const std::string& what) {
  if (!isSo) throw std::runtime_error(what);
}

/// What a process must not take more and more of.
struct Footprint {
  static Footprint now() {
    const auto entries = std::filesystem::directory_iterator("/proc/self/fd");
    return {::mallinfo2().uordblks, static_cast<std::size_t>(std::distance(begin(entries), end(entries)))};
  }
  void print(const char* when) const {
    std::printf("%-22s %8.1f kB in use, %zu descriptors\n", when, static_cast<double>(bytes) / 1e3,
                descriptors);
  }
  std::size_t bytes, descriptors;
};

/// After the first part everything has been made that lasts.
void requireFlat(const Footprint& early, const Footprint& late) {
  constexpr std::size_t slack = 256'000;
  early.print("after the beginning");
  late.print("at the end");
  require(late.bytes <= early.bytes + slack, "memory in use has grown");
  require(late.descriptors <= early.descriptors, "open descriptors have grown");
}

struct SeededCount : CountedFaults {
  sim::FaultAction next(LinkEvent event) override {
    CountedFaults::next(event);
    const sim::FaultAction action = faults.next(event);
    if (action.fault == Fault::disconnect) ++losses;
    return action;
  }
  sim::SeededFaults faults{sim::seedFromEnvironment(1),
                           {.drop = 2e-5, .duplicate = 2e-5, .corrupt = 2e-5, .disconnect = 2e-5}};
  unsigned losses = 0;
};

struct NoLog : Log {
  void write(LogLevel, std::string_view) override {}
};

/// A few minutes of a recorder's day: a long download, a recording, an update, questions.
struct Day {
  explicit Day(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : scene(virtualTime, {.connectionInterval = 7500us, .packetsPerInterval = 6}, plan) {
    scene.damaged = true;
    scene.model->setFrameFilter(nullptr);  // which writes everything down, as the log does
    scene.platform.log = std::make_shared<NoLog>();
    scene.session = nullptr;
    scene.session = scene.open();
  }

  void turn() {
    for (unsigned number = 1; number <= 11; ++number) download(storedRecording(16, number));
    scene.microphone->made.clear();
    count(scene.session->record(scene.file("live"), RecordOptions().length(60s), limits).wait(), recordings);
    std::filesystem::remove(scene.file("live"));
    writeFile(scene.file("image"), text(firmwareImage(98'304, static_cast<std::uint8_t>(updates % 200))));
    count(scene.session->update(scene.file("image"), limits).wait(), updates);
    count(scene.session->status(limits).wait(), queries);
    scene.scheduler.sleep(std::max(Duration::zero(), 600s - scene.now() % 600s));
  }

  void download(const Bytes& content) {
    scene.store->held.clear();
    scene.store->put(content);
    const auto saved = scene.session->download(scene.file("saved"), {}, limits).wait();
    require(saved.has_value(), saved ? "" : saved.error().text());
    require(contentOf(scene.file("saved")) == text(content), "the download is not the recording");
    std::filesystem::remove(scene.file("saved"));
    bytes += content.size();
  }

  template <class T>
  void count(const Result<T>& result, unsigned& succeeded) {
    ++(result ? succeeded : failed);
  }

  const Limits limits = Limits().timeout(30min).reconnects(1000);
  const std::shared_ptr<SeededCount> plan = std::make_shared<SeededCount>();
  SessionScene scene;
  std::uint64_t bytes = 0;
  unsigned recordings = 0, updates = 0, queries = 0, failed = 0;
};

void soakVirtually(double seconds) {
  const auto scheduler = VirtualTimeScheduler::create(sim::seedFromEnvironment(1));
  scheduler->setTimeLimit(std::chrono::hours(24 * 365));
  scheduler->run([&] {
    Day day(scheduler);
    Footprint early{};
    const Duration until = std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
    const Duration settled = until / 10;
    for (bool isSettled = false; scheduler->now() < until;) {
      day.turn();
      if (isSettled || scheduler->now() < settled) continue;
      isSettled = true;
      early = Footprint::now();
    }
    std::printf(
        "%.1f h: %llu notifications, %.1f MB downloaded, %u recordings, %u updates, %u queries; %u links "
        "lost, %u of recordings, updates and queries ended with a failure\n",
        std::chrono::duration<double>(scheduler->now()).count() / 3600,
        static_cast<unsigned long long>(day.plan->count(LinkEvent::notification)),
        static_cast<double>(day.bytes) / 1e6, day.recordings, day.updates, day.queries, day.plan->losses,
        day.failed);
    requireFlat(early, Footprint::now());
  });
}

/// Numbered packets that fill a notification of 244 bytes.
struct FullMicrophone : sim::Microphone {
  static constexpr std::size_t kSize = 240;
  void start() override { made = 0; }
  Bytes nextPacket() override {
    Bytes packet(kSize);
    for (std::size_t i = 0; i < sizeof made; ++i) packet[i] = static_cast<std::uint8_t>(made >> (8 * i));
    ++made;
    return packet;
  }
  std::uint64_t made = 0;
};

/// How many packets of the file follow one another from the first on.
std::uint64_t packetsInOrder(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::array<char, FullMicrophone::kSize + 4> record{};
  for (std::uint64_t number = 0;; ++number) {
    in.read(record.data(), record.size());
    std::uint64_t found = 0;
    std::memcpy(&found, record.data() + 4, sizeof found);
    if (!in || found != number) return number;
  }
}

void soakInRealTime(double seconds) {
  constexpr double bytesPerSecond = 350e3, bytes = FullMicrophone::kSize + 4;
  const std::chrono::duration<double> packet = sim::Microphone::kPacketDuration;
  const auto scheduler = threadScheduler();
  const auto microphone = std::make_shared<FullMicrophone>();
  const auto model = std::make_shared<sim::RecorderModel>(std::make_shared<sim::MemoryStore>());
  model->setMicrophone(microphone);
  const auto fast = std::make_shared<PacedScheduler>(scheduler, bytesPerSecond / bytes * packet.count());
  const auto link = sim::SimulatedLink::create(fast, model, {});
  const auto session = Session::create(session::linkOver(link), session::Options());
  const TemporaryFolder folder;
  auto recording = session->record(
      folder.file("live"),
      RecordOptions().length(std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds))),
      {});
  scheduler->sleep(std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds / 10)));
  const Footprint early = Footprint::now();
  unsigned queries = 0;
  while (!recording.waitFor(1s)) queries += session->battery().wait().has_value() ? 1 : 0;
  const Footprint late = Footprint::now();
  const auto recorded = recording.wait();
  require(recorded.has_value(), recorded ? "" : recorded.error().text());
  const std::uint64_t inOrder = packetsInOrder(folder.file("live"));
  std::printf("%.0f s: %llu packets of %.0f bytes, %.1f kB/s, %llu of them in the file, %u queries beside\n",
              seconds, static_cast<unsigned long long>(microphone->made), bytes,
              static_cast<double>(microphone->made) * bytes / seconds / 1e3,
              static_cast<unsigned long long>(inOrder), queries);
  require(inOrder == microphone->made, "packets were lost");
  require(static_cast<double>(microphone->made) * bytes >= 0.98 * bytesPerSecond * (seconds - 1),
          "the rate was not reached");
  requireFlat(early, late);
}

}  // namespace
}  // namespace kwtsdk::testing

int main(int count, char** arguments) try {
  const std::string kind = count > 1 ? arguments[1] : "virtual";
  const bool isReal = kind == "real";
  if (!isReal && kind != "virtual") throw std::runtime_error("usage: kwtsdk_soak [virtual|real] [SECONDS]");
  const double seconds = count > 2 ? std::atof(arguments[2]) : isReal ? 600 : 86400;
  isReal ? kwtsdk::testing::soakInRealTime(seconds) : kwtsdk::testing::soakVirtually(seconds);
  return 0;
} catch (const std::exception& failure) {
  std::fprintf(stderr, "soak: %s\n", failure.what());
  return 1;
}
