// The facade's campaign with bytes that decide, over a link on which anything may arrive instead of a
// notification, and with a host that calls and changes all that it can reach.

#include "fuzz/damaged.h"
#include "fuzz/input.h"
#include "tests/campaign/scenario.h"

namespace kwtsdk::fuzz {
namespace {

using namespace std::literals;
using campaign::Scene;

/// What hosts do beside their operations, at any moment.
class Meddler {
 public:
  Meddler(Scene& scene, const testing::Choices& choices) : scene_(scene), choices_(choices) {}

  void run() {
    for (auto left = choices_.below(60); left > 0; --left) {
      scene_.scheduler.sleep(Duration(choices_.below(8) == 0 ? 10ms : 100us) * choices_.below(256));
      ++scene_.ledger.faults;
      meddle();
    }
    kept_ = nullptr;
    for (int tries = 0; *uploads_ > 0 && tries < 40; ++tries) {  // which have no limit
      scene_.link.disconnect();
      scene_.helper.setCompletionBlock(nullptr);
      scene_.scheduler.sleep(6s);
    }
    require(*uploads_ == 0, "what has to end does");
    scene_.link.connect();
  }

 private:
  auto completion() {
    return [calls = std::make_shared<int>(0)](const auto&...) {
      require(++*calls == 1, "a completion is called once");
    };
  }

  void meddle() {
    KWTBluetoothHelper& helper = scene_.helper;
    static const Bytes image(8192 + 300, 7);
    const std::function<void()> acts[]{
        [&] { kept_ = helper.completionBlock(); },
        [&] {
          if (const auto kept = kept_) kept(std::nullopt, "00");
        },
        [&] { helper.setCompletionBlock(nullptr); },
        [&] { helper.setWriteDataBlock(nullptr); },
        [&] { helper.setRecordFileHandle(nullptr); },
        [&] { closeFileHandle(helper.recordFileHandle()); },
        [&] { helper.setWritten(!helper.written()); },
        [&] { helper.setCommandCharacteristic(helper.commandCharacteristic()); },
        [&] { helper.stopMonitorTimer(); },
        [&] { scene_.link.disconnect(); },
        [&] { scene_.link.connect(); },
        [&] {
          ++*uploads_;
          helper.uploadFirmWare(
              image, 8192, [](auto...) {},
              [left = uploads_, end = completion()](const auto&... outcome) {
                --*left;
                end(outcome...);
              });
        },
        [&] { helper.updatePrepare(completion()); },
        [&] { helper.updateSelectionSide(completion()); },
        [&] { helper.updateResumeVerify(8192, 0, completion()); },
        [&] { helper.updateBegin(image, completion()); },
        [&] { helper.updateConfig(image, completion()); },
        [&] { helper.updateCheckData(image, completion()); },
        [&] { helper.updateBye(completion()); },
        [&] { helper.updateDone(); },
        [&] {
          helper.sendCommand(anyBytes(choices_), wire::CHARACTERISTIC_WRITE,
                             static_cast<std::int64_t>(choices_.below(20)), [](auto&...) {});
        },
    };
    acts[choices_.below(std::size(acts))]();
  }

  Scene& scene_;
  testing::Choices choices_;
  const std::shared_ptr<int> uploads_ = std::make_shared<int>(0);  // under way
  ReplyHandler kept_;                                              // the library's, read at some moment
};

void meddle(Scene& scene, testing::Choices choices) {
  for (int& underWay : scene.ledger.clearing) ++underWay;  // by what is begun here
  const auto tell = scene.helper.didUpdateValueForCharacteristicBlock();
  const auto damage = [&ledger = scene.ledger, choices, tell](const auto& from, const auto& of,
                                                              const auto& error) mutable {
    const auto values = arriving(choices, *of->value());
    if (values != std::vector<Bytes>(1, *of->value())) ++ledger.faults;
    for (const Bytes& value : values) {
      std::dynamic_pointer_cast<gatt::ValueCharacteristic>(of)->setValue(value);
      tell(from, of, error);
    }
  };
  // Of the very command that is being completed, for one.
  scene.onReport = [&scene, choices]() mutable {
    const auto pending = choices.below(4) == 0 ? scene.helper.completionBlock() : nullptr;
    if (!pending) return;
    ++scene.ledger.faults;
    pending(std::nullopt, "00");
  };
  scene.link.setEvents(scene.helper.didWriteValueForCharacteristicBlock(), damage);
  Meddler(scene, choices).run();
}

const Target facadeTarget("facade", [](Input& input) {
  auto choices = input.choices();
  const auto& profile = campaign::kProfiles.at(choices.below(campaign::kProfiles.size()));
  campaign::runScenario(choices, profile, {},
                        profile.trouble == campaign::Trouble::any ? meddle : campaign::Disturbance());
});

}  // namespace
}  // namespace kwtsdk::fuzz
