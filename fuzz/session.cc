// The session's campaign with bytes that decide, over a link on which anything may arrive instead of a
// notification, and with a disk that fails for a while.

#include "fuzz/damaged.h"
#include "fuzz/input.h"
#include "tests/session_campaign/scenario.h"
#include "tests/support/failing_sync.h"

namespace kwtsdk::fuzz {
namespace {

using namespace std::literals;

void disturb(session_campaign::Scene& scene, testing::Choices choices) {
  scene.isHostile = true;
  scene.link->onUpdate = [choices](const Bytes& value) mutable { return arriving(choices, value); };
  for (auto left = choices.below(4); left > 0; --left) {
    scene.scheduler.sleep(Duration(10ms) * choices.below(256));
    const auto full =
        choices.below(2) == 0 ? std::make_unique<testing::FullDisk>(choices.below(256) * 200) : nullptr;
    const auto failing = full ? nullptr : std::make_unique<testing::FailingSync>();
    scene.scheduler.sleep(Duration(10ms) * choices.below(256));
  }
}

const Target sessionTarget("session",
                           [](Input& input) { session_campaign::runScenario(input.choices(), {}, disturb); });

}  // namespace
}  // namespace kwtsdk::fuzz
