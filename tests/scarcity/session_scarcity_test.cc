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
  all.push_back({"recordAndBattery", [](SessionScene& scene, const Limits& limits) {
                   const auto recording =
                       scene.session->record(scene.file("live"), RecordOptions().length(100ms), limits);
                   const auto level = scene.session->battery(limits).wait();
                   EXPECT_TRUE(!level || *level == 80) << *level;
                   const auto recorded = recording.wait();
                   const Counting spares(false);
                   const std::string content = contentOf(scene.file("live"));
                   EXPECT_TRUE(!recorded || NumberedMicrophone::file(0, 1000).starts_with(content));
                   return codeOf(recorded);
                 }});
  all.push_back({"throwingClose", [](SessionScene& scene, const Limits& limits) {
                   scene.link->onClose = [link = scene.simLink] {
                     link->disconnect();
                     throw std::bad_alloc();
                   };
                   scene.session = nullptr;
                   scene.session = scene.open(Options().keepLink(0s));
                   return codeOf(scene.session->battery(limits).wait());
                 }});
  return all;
}

std::uint64_t runWith(const Scarcity& scarcity, const NamedOperation& operation) {
  std::uint64_t requests = 0;
  play<ScarceScene>([&](ScarceScene& scene) {
    scene.damaged = scarcity.at != 0;
    bool isHeard = false;
    const std::weak_ptr<Session> first = scene.session;
    const auto events = scene.session->events();
    events.forEach([&isHeard](const session::Event&) { isHeard = true; });
    scarcity.begin(operation.name);
    std::error_code code;
    try {
      const Counting counts;
      code = operation.run(scene, Limits().timeout(60s));
    } catch (const std::exception&) {  // what is thrown to a caller has been reported
      code = make_error_code(Errc::noResources);
    }
    requests = Scarcity::end();
    const bool isSame = !first.expired();
    if (!scene.session) scene.session = scene.open();
    const auto link = scene.session->snapshot().link;
    const bool isOpen =
        scene.link->opens > 0 && scene.simLink->peripheral()->state() == PeripheralState::connected;
    EXPECT_TRUE(link == session::LinkState::open || !isOpen) << "the link is left open";
    isHeard = false;
    auto level = scene.session->battery().wait();
    if (!level && level.error() == Errc::noResources) {  // it has no thread, and says so
      scene.session = scene.open();
      level = scene.session->battery().wait();
    } else {
      scene.session = nullptr;
      EXPECT_TRUE(isHeard || !isSame);
    }
    EXPECT_TRUE(level) << level.error().text();
    EXPECT_TRUE(scarcity.at != 0 || !code) << code.message();
  });
  return requests;
}

class SessionScarcity : public ::testing::TestWithParam<Scarcity> {};
TEST_P(SessionScarcity, EndsWellOrSaysSo) { atEachRequest(GetParam(), operationsAndMore(), runWith); }
INSTANTIATE_TEST_SUITE_P(All, SessionScarcity, everyScarcity());

}  // namespace
}  // namespace kwtsdk::testing
