// What a central may say to the recorder over the air: PDUs of any content.

#include <memory>
#include <stdexcept>

#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "fuzz/input.h"
#include "sim/air/att_session.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::fuzz {
namespace {

constexpr std::uint8_t kNotification = 0x1B, kCommandBit = 0x40, kMtuResponse = 0x03;

/// What is asked on one connection is answered once, and nothing is longer than was agreed.
struct Central {
  void heard(const Bytes& pdu) {
    require(!pdu.empty() && pdu.size() <= mtu, "no PDU is longer than the MTU");
    if (pdu[0] == kNotification) return;
    require(open-- == 1, "one answer to a request");
    if (pdu[0] == kMtuResponse) mtu = std::clamp<std::size_t>(offered, 23, 517);
  }
  std::size_t mtu = 23, offered = 23;
  int open = 0;
};

Bytes anyPdu(Input& input) {
  // A frame for the recorder's channel, whose handle is 8; its notifications; another MTU.
  if (input.chance(4)) {
    Bytes pdu{0x12, 8, 0};
    const Bytes frame = wire::downloadRequest(1, input.byte() * 400U);
    pdu.insert(pdu.end(), frame.begin(), frame.end());
    return pdu;
  }
  if (input.chance(4)) return {0x12, 11, 0, static_cast<std::uint8_t>(input.below(3)), 0};
  return input.bytes();
}

void talk(Input& input, const std::shared_ptr<sim::VirtualTimeScheduler>& scheduler) {
  const auto store = std::make_shared<sim::MemoryStore>();
  store->add(Bytes(200, 1));
  sim::SimulatedRecorder recorder{std::make_shared<sim::RecorderModel>(store), nullptr};
  recorder.link = sim::SimulatedLink::create(scheduler, recorder.model, {.mtu = 517});
  recorder.link->disconnect();
  Central central;
  sim::AttSession session(recorder, "Recorder", {[&](const Bytes& pdu) { central.heard(pdu); }, [] {}});
  while (!input.empty()) {
    const Bytes pdu = anyPdu(input);
    if (!pdu.empty() && pdu[0] == 2 && pdu.size() == 3) central.offered = pdu[1] + 256U * pdu[2];
    const bool isAsked = !pdu.empty() && (pdu[0] & kCommandBit) == 0 && pdu[0] % 2 == 0 && pdu[0] != 0x1E;
    central.open = isAsked ? 1 : 0;
    session.receive(pdu);
    recorder.link->drain();
    require(central.open == 0, "a request is answered");
  }
}

const Target airTarget("air", [](Input& input) {
  const auto scheduler = sim::VirtualTimeScheduler::create(1);
  scheduler->run([&] { talk(input, scheduler); });
});

}  // namespace
}  // namespace kwtsdk::fuzz
