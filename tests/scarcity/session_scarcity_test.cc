// Memory or threads run out at every single request for them, in every operation: it ends well or says that
// it did not, and the session goes on.

#include <gtest/gtest.h>

#include "tests/scarcity/scarcity.h"
#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

struct ScarceScene : SessionScene {
  explicit ScarceScene(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : SessionScene(virtualTime, {}, std::make_shared<CountedFaults>(), scarceScheduler(virtualTime)) {}
};

std::vector<NamedOperation> operationsAndMore() {
  std::vector<NamedOperation> all = everyOperation();
  all.push_back({"create", [](SessionScene& scene, const Limits&) {
                   scene.session = nullptr;
                   scene.session = scene.open();
                   return kOk;
                 }});
  return all;
}

std::uint64_t runWith(const Scarcity& scarcity, const NamedOperation& operation) {
  std::uint64_t requests = 0;
  play<ScarceScene>([&](ScarceScene& scene) {
    scene.damaged = scarcity.at != 0;
    scarcity.begin(operation.name);
    std::error_code code;
    try {
      const Counting counts;
      code = operation.run(scene, Limits().timeout(60s));
    } catch (const std::exception&) {  // what is thrown to a caller has been reported
      code = make_error_code(Errc::noResources);
    }
    requests = Scarcity::end();
    if (!scene.session) scene.session = scene.open();
    auto level = scene.session->battery().wait();
    if (!level && level.error() == Errc::noResources) {  // it has no thread, and says so
      scene.session = scene.open();
      level = scene.session->battery().wait();
    }
    EXPECT_TRUE(level) << level.error().text();
    EXPECT_TRUE(scarcity.at != 0 || !code) << code.message();
  });
  return requests;
}

class SessionScarcity : public ::testing::TestWithParam<Scarcity> {};
TEST_P(SessionScarcity, EndsWellOrSaysSo) { atEachRequest(GetParam(), operationsAndMore(), runWith); }
INSTANTIATE_TEST_SUITE_P(All, SessionScarcity,
                         ::testing::Values(Scarcity{Scarcity::Of::memory, 0, false},
                                           Scarcity{Scarcity::Of::memory, 0, true},
                                           Scarcity{Scarcity::Of::threads, 0, false},
                                           Scarcity{Scarcity::Of::threads, 0, true}));

}  // namespace
}  // namespace kwtsdk::testing
