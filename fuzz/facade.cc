// A facade between a host that does anything at any moment and a recorder whose answers are late, damaged,
// doubled or missing: whatever happens, no completion is called twice, and what has to be reported is.

#include <array>
#include <deque>

#include "fuzz/host_file.h"
#include "fuzz/input.h"
#include "tests/support/facade_operations.h"

namespace kwtsdk::fuzz {
namespace {

using namespace std::literals;
using sim::Channel;
using testing::FakeCharacteristic;

class Facade : testing::FakeHost {
 public:
  Facade(Input& input, const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime)
      : FakeHost(virtualTime), input_(input), scheduler_(*virtualTime) {
    store_->add(Bytes(input.byte() * 20U, 1));
    peripheral->onWrite = [this](const auto& to) {
      written_.push_back({to, internal::toData(peripheral->calls.back().substr(6))});
    };
  }

  void run() {
    while (!input_.empty()) step();
    // What a host does when the link is gone: then everything ends that is awaited. What it has read it lets
    // go of.
    kept_ = nullptr;
    peripheral->current = PeripheralState::disconnected;
    for (int tries = 0; tries < 40 && (tries < 4 || open_ > 0); ++tries) {
      helper->setCompletionBlock(nullptr);
      helper->setWriteDataBlock(nullptr);
      helper->stopMonitorTimer();
      scheduler_.sleep(6s);
    }
    require(open_ == 0, "what has to end does");
    const std::weak_ptr<KWTBluetoothHelper> weak = std::exchange(helper, nullptr);
    require(weak.expired(), "nothing keeps the facade");
  }

 private:
  struct Written {
    std::shared_ptr<Characteristic> to;
    Bytes frame;
  };

  void step() {
    switch (input_.below(20)) {
      case 0:
      case 1:
      case 2:
        return ask();
      case 3:
        return block();
      case 4:
        return meddle();
      case 5:
        return notify(anyNotifying(), internal::hexString(input_.bytes()));
      case 6:
        return scheduler_.sleep(Duration(20ms) * input_.byte());
      case 7:
        return stream(input_.below(64));
      default:
        return deliver();
    }
  }

  // ---- The host ----

  /// Of what has to be reported, or may stay unreported.
  auto completion(bool always = false) {
    open_ += always ? 1 : 0;
    const bool again = input_.chance(4);
    return [this, always, again, calls = std::make_shared<int>(0)](const auto&...) {
      require(++*calls == 1, "a completion is called once");
      open_ -= always ? 1 : 0;
      scheduler_.preemptionPoint();
      if (again && kept_) kept_(std::nullopt, "00");  // which may be the very command that is being completed
    };
  }

  void ask() {
    const std::string& file = hostFile("facade", 5000);
    static const Bytes image(8192 + 300, 7);
    const auto id = static_cast<std::int64_t>(input_.below(4));
    const auto& forms = testing::completionForms();
    const std::function<void()> steps[]{
        [&] {
          helper->uploadFirmWare(
              image, 8192, [](auto...) {}, completion(true));
        },
        [&] { helper->updatePrepare(completion()); },
        [&] { helper->updateSelectionSide(completion()); },
        [&] { helper->updateResumeVerify(8192, 0, completion()); },
        [&] { helper->updateBegin(image, completion()); },
        [&] { helper->updateConfig(image, completion()); },
        [&] { helper->updateCheckData(image, completion()); },
        [&] { helper->updateBye(completion()); },
        [&] { helper->updateDone(); },
        [&] { helper->sendCommand(input_.bytes(), wire::CHARACTERISTIC_WRITE, id, [](auto&...) {}); }};
    const std::size_t which = input_.below(forms.size() + std::size(steps));
    if (which >= forms.size()) return steps[which - forms.size()]();
    forms[which].begin(*helper, {completion(forms[which].isAlwaysReported)}, file, id);
  }

  void block() {
    // The inputs know these five, and a packet of an update, which has no limit.
    const std::size_t which = input_.below(6);
    ++open_;
    scheduler_.spawn("blocking", [this, which] {
      const Duration began = scheduler_.now();
      if (which == 5) helper->updateSendData(Bytes(100), [](auto&...) {});
      if (which < 5) testing::blockingForms()[which].call(*helper);
      require(which == 5 || scheduler_.now() - began <= 5s, "a blocking form keeps its limit");
      --open_;
    });
  }

  void meddle() {
    switch (input_.below(9)) {
      case 0:
        kept_ = helper->completionBlock();
        return;
      case 1:
        if (const auto kept = kept_) kept(std::nullopt, "00");
        return;
      case 2:
        return helper->setCompletionBlock(nullptr);
      case 3:
        if (auto inner = helper->completionBlock())
          helper->setCompletionBlock(testing::wrapped(inner, [this] { scheduler_.preemptionPoint(); }));
        return;
      case 4:
        return helper->setWriteDataBlock(nullptr);
      case 5:
        closeFileHandle(helper->recordFileHandle());
        return helper->setRecordFileHandle(nullptr);
      case 6:
        peripheral->current = PeripheralState::disconnected;
        return;
      case 7:
        peripheral->current = PeripheralState::connected;
        return;
      default:
        helper->setWritten(!helper->written());
        helper->setCommandCharacteristic(helper->commandCharacteristic());
        return helper->stopMonitorTimer();
    }
  }

  // ---- The recorder ----

  const std::shared_ptr<FakeCharacteristic>& anyNotifying() {
    const std::array channels{&statusNotify, &fileNotify, &firmware};
    return *channels.at(input_.below(channels.size()));
  }
  const std::shared_ptr<FakeCharacteristic>& notifying(Channel channel) const {
    return channel == Channel::status ? statusNotify : channel == Channel::recorder ? fileNotify : firmware;
  }

  /// The write that was made first, with what the link and the recorder make of it.
  void deliver() {
    const std::uint8_t trouble = input_.byte();
    if (written_.empty()) return scheduler_.sleep(5ms);  // between the commands of a chain
    const Written written = std::move(written_.front());
    written_.pop_front();
    const bool isRefused = trouble == 1;
    if (trouble != 2) acknowledge(written.to, isRefused ? MaybeError(Error("link", 7, {})) : std::nullopt);
    const Channel channel = written.to == statusWrite ? Channel::status
                            : written.to == fileWrite ? Channel::recorder
                                                      : Channel::firmware;
    if (isRefused || trouble == 3) return;
    const auto answer = model_.write(channel, written.frame);
    if (answer) notify(notifying(channel), internal::hexString(damaged(*answer, trouble)));
    if (answer && trouble == 4) notify(notifying(channel), internal::hexString(*answer));
  }
  Bytes damaged(Bytes bytes, std::uint8_t trouble) {
    if (trouble == 5 && !bytes.empty()) bytes[input_.byte() % bytes.size()] ^= input_.byte();
    if (trouble == 6) bytes.resize(std::min<std::size_t>(bytes.size(), input_.byte()));
    return bytes;
  }
  void stream(std::size_t packets) {
    for (std::size_t i = 0; i < packets; ++i) {
      if (model_.recording()) model_.recordPacket();
      if (const auto packet = model_.streaming() ? model_.nextPacket() : std::nullopt)
        notify(notifying(packet->channel),
               internal::hexString(damaged(packet->value, i == 0 ? input_.byte() : 0)));
    }
  }

  Input& input_;
  sim::VirtualTimeScheduler& scheduler_;
  const std::shared_ptr<sim::MemoryStore> store_ = std::make_shared<sim::MemoryStore>();
  sim::RecorderModel model_{store_};
  std::deque<Written> written_;
  ReplyHandler kept_;  // the library's, read at some moment
  int open_ = 0;       // what has to end and has not
};

const Target facadeTarget("facade", [](Input& input) {
  const auto scheduler = sim::VirtualTimeScheduler::create(input.byte());
  scheduler->run([&] { Facade(input, scheduler).run(); });
});

}  // namespace
}  // namespace kwtsdk::fuzz
