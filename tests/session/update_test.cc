// Firmware: what is not an image is not sent, and nothing happens by half.

#include <gtest/gtest.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

using session::Installed;

Result<Installed> install(SessionScene& scene, const Bytes& image, const Limits& limits = {}) {
  writeFile(scene.file("image"), text(image));
  return scene.session->update(scene.file("image"), limits).wait();
}

TEST(SessionUpdate, InstallsAndAsksTheVersion) {
  for (const std::size_t size : {100UL, 243UL, 3016UL, 8192UL, 8535UL, 49152UL}) {
    play<SessionScene>([&](SessionScene& scene) {
      const auto events = scene.session->events();
      const auto installed = install(scene, firmwareImage(size));
      ASSERT_TRUE(installed) << size << ": " << installed.error().text();
      EXPECT_EQ(scene.model->installedImage(), firmwareImage(size));
      EXPECT_EQ(installed->before, "1.2.3");
      EXPECT_EQ(installed->after, "2.5.7");
      EXPECT_EQ(installed->bytes, size);
      scene.session->close();
      std::size_t seen = 0;
      for (auto event = events.next().wait(); event && *event; event = events.next().wait()) {
        const auto* const told = std::get_if<session::event::FirmwareInstalled>(&**event);
        if (told == nullptr) continue;
        ++seen;
        EXPECT_EQ(told->before + told->after, "1.2.32.5.7");
      }
      EXPECT_EQ(seen, 1U);
    });
  }
}

TEST(SessionUpdate, AnImageThatIsSomethingElseIsRefusedBeforeAnythingIsSent) {
  const std::vector<std::string> begins{"OggS",
                                        "RIFF",
                                        "ID3\3",
                                        "\x7F"
                                        "ELF",
                                        "\x1F\x8B\x08",
                                        "PK\3\4"};
  playEach<SessionScene>(begins, [](SessionScene& scene, const std::string& begin) {
    Bytes image = firmwareImage();
    std::ranges::copy(begin, image.begin());
    const auto installed = install(scene, image);
    ASSERT_EQ(codeOf(installed), Errc::imageRefused) << begin;
    EXPECT_EQ(installed.error().effect(), Effect::none);
    EXPECT_EQ(scene.frames, Lines());
  });
  play<SessionScene>([](SessionScene& scene) {
    EXPECT_EQ(codeOf(install(scene, Bytes(3))), Errc::imageRefused);
    EXPECT_EQ(codeOf(install(scene, {})), Errc::imageRefused);
    for (const std::string file : {"missing", "image/a", ""})
      EXPECT_EQ(codeOf(scene.session->update(scene.file(file)).wait()), Errc::fileUnusable) << file;
    EXPECT_EQ(scene.frames, Lines());
  });
}

// The last packet of such an image would be shorter than a recorder takes.
TEST(SessionUpdate, AnImageWithTooShortATailForThePacketsIsRefusedBeforeAnyOfItIsSent) {
  for (const std::size_t size : {50UL, 244UL, 243UL + 87, 8192UL + 50}) {
    play<SessionScene>([&](SessionScene& scene) {
      const auto installed = install(scene, firmwareImage(size));
      ASSERT_EQ(codeOf(installed), Errc::imageRefused) << size;
      EXPECT_EQ(installed.error().effect(), Effect::none);
      EXPECT_EQ(scene.framesLike("85"), 0U);
      EXPECT_TRUE(scene.session->battery().wait());
    });
  }
}

TEST(SessionUpdate, AStepThatIsRefusedOrSilentEndsItAndLeavesTheFirmware) {
  using sim::UpdateStep;
  for (const UpdateStep step :
       {UpdateStep::prepare, UpdateStep::partition, UpdateStep::resume, UpdateStep::begin,
        UpdateStep::configuration, UpdateStep::check, UpdateStep::bye}) {
    for (const bool silent : {false, true}) {
      play<SessionScene>([&](SessionScene& scene) {
        scene.model->setUpdateTroubles({{step, silent}});
        const Duration begin = scene.now();
        const auto installed = install(scene, firmwareImage(), Limits().reconnects(1));
        ASSERT_FALSE(installed);
        SCOPED_TRACE(installed.error().text());
        const bool speaks = !silent && step != UpdateStep::resume && step != UpdateStep::begin;
        EXPECT_EQ(installed.error() == Errc::stalled, !speaks);
        EXPECT_FALSE(installed.error() == Errc::linkLost);
        EXPECT_EQ(installed.error().cause().has_value(), speaks);
        EXPECT_EQ(installed.error().effect(), Effect::none);
        EXPECT_EQ(scene.framesLike("92"), 0U);
        EXPECT_FALSE(scene.model->installedImage());
        EXPECT_LE(scene.now() - begin, 2 * 40s);
        EXPECT_TRUE(scene.session->battery().wait());
      });
    }
  }
}

// At every frame, and a moment after it.
TEST(SessionUpdate, CancelledBeforeTheImageWasAcceptedItHasNoEffect) {
  const Bytes image = firmwareImage(8535);
  for (std::size_t number = 1; number < 55; ++number) {
    for (const bool slow : {false, true}) {
      play<SlowScene>([&](SlowScene& scene) {
        writeFile(scene.file("image"), text(image));
        std::stop_source stop;
        Duration asked{0};
        scene.onFrame = [&](const std::string&) {
          if (scene.frames.size() != number) return true;
          scene.scheduler.spawn("cancel", [&]() mutable {
            if (slow) scene.scheduler.sleep(40ms);
            asked = scene.now();
            stop.request_stop();
          });
          return true;
        };
        const auto installed = scene.session->update(scene.file("image"), stop.get_token()).wait();
        const bool there = scene.model->installedImage().has_value();
        const Duration lasted = scene.now() - asked;
        scene.scheduler.sleep(50ms);  // until whoever cancels is gone
        SCOPED_TRACE("frame " + std::to_string(number));
        if (installed) {
          EXPECT_TRUE(there);
          return;
        }
        EXPECT_EQ(codeOf(installed), Errc::cancelled);
        EXPECT_EQ(installed.error().effect() == Effect::none, !there);
        EXPECT_LE(lasted, there ? 5100ms : 100ms);
        EXPECT_TRUE(scene.session->battery().wait());
      });
    }
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
    const auto installed = install(scene, firmwareImage());
    ASSERT_TRUE(installed) << installed.error().text();
    EXPECT_EQ(installed->after, "2.5.7");
  });
}

TEST(SessionUpdate, ThatWasNotInstalledDoesNotSayItWas) {
  play<SessionScene>([](SessionScene& scene) {
    scene.model->setFirmwareSlot([](const Bytes&) { return false; });  // the recorder stays with what it had
    const auto installed = install(scene, firmwareImage());
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
    const auto installed = install(scene, firmwareImage());
    EXPECT_EQ(installed.has_value(), deaf < 3);
    EXPECT_EQ(scene.model->installedImage().has_value(), deaf < 3) << deaf;
  });
}

}  // namespace
}  // namespace kwtsdk::testing
