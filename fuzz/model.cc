// Frames of any content into the recorder's model, with a store that now and then cannot be read.

#include <array>
#include <functional>
#include <memory>
#include <stdexcept>

#include <kwtsdk/sim/link_timing.h>
#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/recorder_model.h>

#include "codec/hex.h"
#include "fuzz/input.h"
#include "sim/model/wire.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::fuzz {
namespace {

using sim::Channel;

constexpr std::size_t kSize = 3000;  // of each recording; the rest of its block is zeros

class UnsureStore : public sim::MemoryStore {
 public:
  UnsureStore() {
    for (unsigned i = 0; i < 2; ++i) add(Bytes(kSize, static_cast<std::uint8_t>(i + 1)));
  }
  void read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const override {
    if (fails) throw std::runtime_error("a disk of the target's own");
    MemoryStore::read(index, offset, into);
  }
  bool fails = false;
};

/// Frames that the model takes are rare among bytes: most of them are composed here.
Bytes frame(Input& input) {
  static const Bytes image(300, 7);
  const auto id = static_cast<std::int64_t>(input.below(4));
  const std::function<Bytes()> kinds[]{
      [&] { return wire::infoRequest(id); },
      [&] { return wire::deleteRequest(id); },
      [&] { return wire::downloadRequest(id, input.byte() * 200U); },
      [&] { return wire::downloadRequest(id, input.byte() * 200U); },
      [&] { return wire::startRecordRequest(static_cast<std::int64_t>(input.below(5))); },
      [] { return wire::prepareRequest(); },
      [] { return wire::selectionRequest(); },
      [] { return wire::resumeRequest(8192, 0); },
      [] { return wire::beginRequest(image); },
      [] { return wire::configRequest(*wire::identityOf(image)); },
      [&] { return wire::dataRequest(input.chance(2) ? image : input.bytes()); },
      [&] { return wire::checkRequest(input.chance(2) ? Bytes() : image); },
      [&] { return input.chance(2) ? wire::doneRequest() : wire::byeRequest(); }};
  const std::size_t kind = input.below(16);
  return kind < std::size(kinds) ? kinds[kind]() : input.bytes();
}

/// What the recorder may send for one download: the bytes from the offset on, each of them once.
class Expected {
 public:
  void asked(const sim::RecordingStore& store, const Bytes& request) {
    const auto read = sim::wire::readFileRequest(request);
    if (!read || read->kind != sim::wire::FileRequest::Kind::download) return;
    const std::uint32_t index = read->id - store.firstId();
    const std::uint64_t size = index < store.count() ? sim::RecordingStore::kBlockSize : 0;
    left_ = size - std::min<std::uint64_t>(size, read->offset);
    ends_ = 1;
    isOpen_ = index < store.count();
    isCut_ = false;
  }
  void take(const sim::Notification& sent) {
    if (sent.channel != Channel::recorder || sent.value.size() != wire::kDownloadPacketSize) return;
    const auto packet = wire::downloadPacket(internal::hexString(sent.value));
    if (packet.kind == wire::DownloadPacket::Kind::end)
      return require(ends_-- == 1, "one end marker at most");
    require(packet.valid <= left_, "no byte of a recording is sent that was not asked for");
    left_ -= packet.valid;
    isCut_ = packet.valid < sim::wire::kPacketData;
  }
  void givenUp() { isOpen_ = false; }
  /// When nothing is sent any more: a host takes a packet that is not full for the last.
  void ended(bool isMarked) const {
    require(!isOpen_ || (left_ == 0 && (ends_ == 0) == (isMarked || !isCut_)),
            "all is sent, and marked where it has to be");
  }

 private:
  std::uint64_t left_ = 0;
  int ends_ = 0;
  bool isOpen_ = false, isCut_ = false;
};

void send(sim::RecorderModel& model, std::size_t most, Expected& expected) {
  for (std::size_t i = 0; i < most && model.streaming(); ++i) {
    if (const auto packet = model.nextPacket()) expected.take(*packet);
  }
}

const Target modelTarget("model", [](Input& input) {
  const auto store = std::make_shared<UnsureStore>();
  sim::RecorderModel model(store);
  Expected expected;
  const bool isMarked = input.chance(2);
  model.setAlwaysEndMarker(isMarked);
  const std::function<void()> events[]{
      [&] { model.pressKey(); },
      [&] { model.setInCall(input.chance(2)); },
      [&] {
        model.linkLost();
        expected.givenUp();
        require(!model.streaming() && !model.recording(), "nothing outlives the link");
      },
      [&] { store->fails = input.chance(2); },
      [&] {
        if (model.recording()) model.recordPacket();
      },
      [&] { send(model, input.byte() * 4U, expected); },
      [&] {
        const Bytes written = frame(input);
        const auto channel = static_cast<Channel>(input.below(3));
        if (channel == Channel::recorder) expected.asked(*store, written);
        const auto answer = model.write(channel, written);
        require(!answer || answer->size() <= sim::LinkTiming::kGreatestMtu - 3,
                "an answer fits a notification");
      }};
  static constexpr std::array kOften{0, 1, 2, 3, 4, 4, 5, 5, 6, 6, 6, 6};
  while (!input.empty()) {
    events[kOften.at(input.below(kOften.size()))]();
    if (store->fails) expected.givenUp();
  }
  store->fails = false;
  const std::size_t mostPackets = sim::RecordingStore::kBlockSize / sim::wire::kPacketData + 500;
  send(model, mostPackets, expected);
  require(!model.streaming(), "a stream ends");
  expected.ended(isMarked);
});

}  // namespace
}  // namespace kwtsdk::fuzz
