#include <fstream>
#include <future>
#include <thread>

#include <benchmark/benchmark.h>

#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/simulated_link.h>

#include "bench/host.h"
#include "bench/measure.h"
#include "bench/yardsticks.h"
#include "codec/hex.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::bench {
namespace {

constexpr std::size_t kPacket = 244, kSegment = 8192, kKiB = 1024, kMiB = 1 << 20;

Bytes imageOf(std::size_t size) {
  Bytes image(size);
  for (std::size_t i = 0; i < size; ++i) image[i] = static_cast<std::uint8_t>(i * 31 + i / 251);
  return image;
}

/// Writes that a transfer waits for: packets and checks.
std::size_t exchangesOf(std::size_t imageSize) {
  const std::size_t packetsOfSegment = (kSegment + kPacket - 1) / kPacket;
  return imageSize / kSegment * (packetsOfSegment + 1);
}

/// A recorder that agrees to everything.
std::optional<Bytes> agree(const Bytes& frame) {
  switch (frame.front()) {
    case 0x85:
    case 0x92:
      return std::nullopt;
    case 0x80:
      return internal::toData("81424553540000000000f400");
    case 0x88:
      return Bytes{0x84, 0x01};
    default:
      return Bytes{static_cast<std::uint8_t>(frame.front() + 1), 0x01};
  }
}

bool transfer(KWTBluetoothHelper& helper, const std::optional<Bytes>& image) {
  std::promise<bool> ended;
  helper.uploadFirmWare(image, 0, nullptr,
                        [&](const MaybeError& error, const auto&) { ended.set_value(!error); });
  return ended.get_future().get();
}

void packets(benchmark::State& state) {
  const Undisturbed undisturbed;
  const std::optional<Bytes> image = imageOf(64 * kKiB);
  const std::size_t exchanges = exchangesOf(image->size());
  Host host(agree);
  host.helper->setMTU(kPacket);
  BareTrip bare(1);                           // another thread is woken and wakes this one
  bool sent = transfer(*host.helper, image);  // starts the queue's thread
  compare(
      state, {.name = "update, packet / bare round trip of two threads", .most = 1.5}, kWall, exchanges,
      [&] { sent = sent && transfer(*host.helper, image); },
      [&] {
        for (std::size_t i = 0; i < exchanges; ++i) bare.go();
      });
  if (!sent) fail(state, "The transfer failed");
}
BENCHMARK(packets)->Iterations(41)->UseManualTime()->Unit(benchmark::kMillisecond);

void imageSize(benchmark::State& state) {
  constexpr std::size_t kSmall = 64 * kKiB, kLarge = 16 * kMiB;
  const Undisturbed undisturbed;
  const std::optional<Bytes> small = imageOf(kSmall), large = imageOf(kLarge);
  Host host(agree);
  host.helper->setMTU(kPacket);
  bool sent = transfer(*host.helper, small);
  compare(
      state, {.name = "update, packet of 16 MiB / packet of 64 KiB", .most = 1.1}, kWall, exchangesOf(kLarge),
      [&] { sent = sent && transfer(*host.helper, large); },
      [&] {
        for (std::size_t i = 0; i < kLarge / kSmall; ++i) sent = sent && transfer(*host.helper, small);
      });
  if (!sent) fail(state, "The transfer failed");
}
BENCHMARK(imageSize)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

void updateMemory(benchmark::State& state) {
  constexpr std::size_t kSize = 16 * kMiB;
  const testing::TemporaryFolder folder;
  {
    const Bytes image = imageOf(kSize);
    std::ofstream(folder.file("image"), std::ios::binary)
        .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
  }
  for (auto _ : state) {
    Host host(agree);
    if (!forgetPeak()) return fail(state, "The peak of memory cannot be measured: /proc/self/clear_refs");
    const double before = peakMemory();
    std::promise<bool> ended;
    host.helper->updateFirmware(folder.file("image"), nullptr,
                                [&](const MaybeError& error, const auto&) { ended.set_value(!error); });
    if (!ended.get_future().get()) return fail(state, "The update failed");
    report(state, {.name = "update of 16 MiB, growth of peak memory", .most = 17, .unit = "MiB"},
           (peakMemory() - before) / kMiB);
  }
}
BENCHMARK(updateMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

/// A link with a connection interval: what is written takes one, its acknowledgement the next.
struct TimedLink {
  explicit TimedLink(Duration interval)
      : link(sim::SimulatedLink::create(
            threadScheduler(), std::make_shared<sim::RecorderModel>(std::make_shared<sim::MemoryStore>()),
            {.connectionInterval = interval, .packetsPerInterval = 1})) {}
  std::shared_ptr<sim::SimulatedLink> link;
};

// Each write when the one before has been acknowledged.
void bareWrites(sim::SimulatedLink& link, std::size_t writes) {
  Mailbox acknowledged;
  link.setEvents([&](auto&&...) { acknowledged.put(Mailbox::Letter::token); }, nullptr);
  const auto characteristic = link.characteristic(wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY);
  for (std::size_t i = 0; i < writes; ++i) {
    link.peripheral()->writeValue(Bytes(kPacket + 1), characteristic, WriteType::withResponse);
    acknowledged.take();
  }
  link.setEvents(nullptr, nullptr);
}

void timedLink(benchmark::State& state) {
  constexpr std::size_t kWrites = 33;
  const auto interval = std::chrono::microseconds(state.range(0));
  const TimedLink subject(interval), yardstick(interval);
  const auto helper = KWTBluetoothHelper::create();
  subject.link->attach(helper);
  const Bytes packet(kPacket);
  int failed = 0;
  compare(
      state,
      {.name = "update, packet at " + std::to_string(state.range(0)) + " us / what the link allows",
       .most = 1 / 0.99},
      kWall, kWrites,
      [&] {
        for (std::size_t i = 0; i < kWrites; ++i) {
          helper->updateSendData(packet,
                                 [&](const MaybeError& error, const auto&) { failed += error ? 1 : 0; });
        }
      },
      [&] { bareWrites(*yardstick.link, kWrites); });
  if (failed != 0) fail(state, "A packet was not acknowledged");
}
BENCHMARK(timedLink)->Arg(7500)->Arg(15000)->Arg(30000)->Iterations(5)->UseManualTime()->Unit(
    benchmark::kMillisecond);

}  // namespace
}  // namespace kwtsdk::bench
