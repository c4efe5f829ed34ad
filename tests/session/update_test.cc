// Firmware: what is not an image is not sent, and nothing happens by half.

#include <gtest/gtest.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

using session::Installed;

session::Operation<Installed> install(SessionScene& scene, const Bytes& image, const Limits& limits = {}) {
  writeFile(scene.file("image"), text(image));
  return scene.session->update(scene.file("image"), limits);
}

TEST(SessionUpdate, InstallsAndAsksTheVersion) {
  playEach<SessionScene>(
      std::array{100U, 243U, 8192U, 8535U, 49152U}, [](SessionScene& scene, unsigned size) {
        const auto events = scene.session->events();
        const auto installed = install(scene, firmwareImage(size)).wait();
        ASSERT_TRUE(installed) << size << ": " << installed.error().text();
        EXPECT_EQ(scene.model->installedImage(), firmwareImage(size));
        EXPECT_EQ(installed->before + " " + installed->after, "1.2.3 2.5.7");
        EXPECT_EQ(installed->bytes, size);
        scene.session->close();
        Lines seen;
        for (auto event = events.next().wait(); event && *event; event = events.next().wait()) {
          const auto* const told = std::get_if<session::event::FirmwareInstalled>(&**event);
          if (told != nullptr) seen.push_back(told->before + " " + told->after);
        }
        EXPECT_EQ(seen, Lines{"1.2.3 2.5.7"});
      });
}

// Nor the last packet of an image which would be shorter than a recorder takes.
TEST(SessionUpdate, WhatIsNoImageIsRefusedBeforeAnyOfItIsSent) {
  const std::pair<Bytes, bool> table[]{{joined(Bytes{'O', 'g', 'g', 'S'}, firmwareImage()), true},
                                       {Bytes(3), true},
                                       {{}, true},
                                       {firmwareImage(50), true},
                                       {firmwareImage(8192 + 50), true},
                                       {firmwareImage(244), false},  // which shows with the MTU
                                       {firmwareImage(243 + 87), false}};
  playEach<SessionScene>(table, [](SessionScene& scene, const Bytes& image, bool isAtOnce) {
    const auto installed = install(scene, image).wait();
    ASSERT_EQ(codeOf(installed), Errc::imageRefused) << image.size();
    EXPECT_EQ(installed.error().effect(), Effect::none);
    EXPECT_EQ(scene.framesLike("85"), 0U);
    EXPECT_EQ(scene.frames.empty(), isAtOnce);
    EXPECT_EQ(codeOf(scene.session->update(scene.file("missing")).wait()), Errc::fileUnusable);
    EXPECT_TRUE(scene.session->battery().wait());
  });
}

TEST(SessionUpdate, AStepThatIsRefusedOrSilentEndsItAndLeavesTheFirmware) {
  using sim::UpdateStep;
  for (const UpdateStep step :
       {UpdateStep::prepare, UpdateStep::partition, UpdateStep::resume, UpdateStep::begin,
        UpdateStep::configuration, UpdateStep::check, UpdateStep::bye}) {
    playEach<SessionScene>(std::array{false, true}, [step](SessionScene& scene, bool silent) {
      scene.model->setUpdateTroubles({{step, silent}});
      const auto installed = install(scene, firmwareImage(), Limits().reconnects(1)).wait();
      ASSERT_FALSE(installed);
      SCOPED_TRACE(installed.error().text());
      const bool speaks = !silent && step != UpdateStep::resume && step != UpdateStep::begin;
      EXPECT_EQ(installed.error() == Errc::stalled, !speaks);
      EXPECT_FALSE(installed.error() == Errc::linkLost);
      EXPECT_EQ(installed.error().cause().has_value(), speaks);
      EXPECT_EQ(installed.error().effect(), Effect::none);
      EXPECT_EQ(scene.framesLike("92"), 0U);
      EXPECT_FALSE(scene.model->installedImage());
      EXPECT_LE(scene.now(), 2 * 40s);
      EXPECT_TRUE(scene.session->battery().wait());
    });
  }
}

TEST(SessionUpdate, ARecorderThatRestartsIsAskedOverANewLink) {
  play<SessionScene>([](SessionScene& scene) {
    scene.onFrame = [&](const std::string& frame) {
      if (!frame.starts_with("92")) return true;
      // It is gone a while.
      scene.link->onOpen = [&scene, until = scene.now() + 4s]() -> MaybeError {
        scene.scheduler.sleep(1s);
        if (scene.now() < until) return Error("host.bluetooth", 1, {});
        return std::nullopt;
      };
      scene.simLink->disconnect();
      return true;
    };
    const auto installed = install(scene, firmwareImage()).wait();
    ASSERT_TRUE(installed) << installed.error().text();
    EXPECT_EQ(installed->after, "2.5.7");
  });
}

TEST(SessionUpdate, ThatWasNotInstalledDoesNotSayItWas) {
  play<SessionScene>([](SessionScene& scene) {
    scene.model->setFirmwareSlot([](const Bytes&) { return false; });  // the recorder stays with what it had
    const auto installed = install(scene, firmwareImage()).wait();
    ASSERT_EQ(codeOf(installed), Errc::refused);
    EXPECT_EQ(installed.error().effect(), Effect::unknown);
    EXPECT_EQ(installed.partial()->after, "1.2.3");
  });
}

TEST(SessionUpdate, IsDoneOnceTheRecorderHasHeardIt) {
  playEach<SessionScene>(std::array{0, 1, 2, 3}, [](SessionScene& scene, int deaf) {
    scene.onFrame = [&, left = deaf](const std::string& frame) mutable {
      return !frame.starts_with("92") || left-- <= 0;
    };
    EXPECT_EQ(install(scene, firmwareImage()).wait().has_value(), deaf < 3);
    EXPECT_EQ(scene.model->installedImage().has_value(), deaf < 3) << deaf;
  });
}

}  // namespace
}  // namespace kwtsdk::testing
