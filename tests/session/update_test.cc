// When a firmware update says that it is done.

#include <gtest/gtest.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

// Nothing answers the last frame, which may be lost, and with which the recorder may be gone for a while.
TEST(SessionUpdate, IsDoneOnceTheRecorderTellsTheNewVersion) {
  struct Case {
    int deaf;  // to how many of those frames
    bool restarts, stays;
    std::error_code code;
  };
  const Case table[]{{0, false, false, kOk},           {1, false, false, kOk},
                     {2, false, false, kOk},           {0, true, false, kOk},
                     {3, false, false, Errc::refused}, {0, false, true, Errc::refused}};
  playEach<SessionScene>(table, [](SessionScene& scene, const Case& test) {
    if (test.stays) scene.model->setFirmwareSlot([](const Bytes&) { return false; });
    scene.onFrame = [&, left = test.deaf](const std::string& frame) mutable {
      if (!frame.starts_with("92")) return true;
      if (left-- > 0) return false;
      if (!test.restarts) return true;
      scene.link->onOpen = [&scene, until = scene.now() + 4s]() -> MaybeError {
        scene.scheduler.sleep(1s);
        if (scene.now() < until) return Error("host.bluetooth", 1, {});
        return std::nullopt;
      };
      scene.simLink->disconnect();
      return true;
    };
    writeFile(scene.file("image"), firmwareImage());
    const auto installed = scene.session->update(scene.file("image")).wait();
    ASSERT_EQ(codeOf(installed), test.code);
    EXPECT_EQ(installed.achieved()->after, installed ? "2.5.7" : "1.2.3");
    EXPECT_EQ(scene.model->installedImage().has_value(), installed.has_value());
    EXPECT_TRUE(installed || installed.error().effect() == Effect::unknown);
  });
}

// A packet of the image that got lost unseen, a version told wrongly, and a host that cancels when it is too
// late.
TEST(SessionUpdate, WithstandsDamageAndALateCancellation) {
  play<SessionScene>([](SessionScene& scene) {
    std::optional<session::Operation<session::Installed>> update;
    bool isLost = false, isWrong = false;
    scene.onFrame = [&](const std::string& frame) {
      if (frame.starts_with("92")) update->cancel();
      return !frame.starts_with("85") || std::exchange(isLost, true);
    };
    scene.link->onUpdate = [&](Bytes value) {
      if (value.at(0) == 0x8F && !std::exchange(isWrong, true)) value.at(5) ^= 1;
      return std::vector<Bytes>{value};
    };
    writeFile(scene.file("image"), firmwareImage());
    const auto installed = update.emplace(scene.session->update(scene.file("image"))).wait();
    ASSERT_EQ(codeOf(installed), kOk);
    EXPECT_EQ(installed->before + " " + installed->after, "1.2.3 2.5.7");
    EXPECT_EQ(scene.framesLike("97"), 2U) << "it begins anew";
  });
}

}  // namespace
}  // namespace kwtsdk::testing
