// No recording is lost: what is checked, healed, continued, and when the recorder may delete its copy.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "tests/session/session_host.h"

namespace kwtsdk::testing {
namespace {

using session::Saved;

/// Downloads until a fault that was added ends it, which leaves a part.
void cutShort(SessionScene& scene, const std::string& file, std::uint64_t packet) {
  scene.faults.add(LinkEvent::notification, scene.faults.count(LinkEvent::notification) + packet,
                   {Fault::disconnect, {}});
  const auto cut = scene.session->download(file, {}, Limits().reconnects(0)).wait();
  EXPECT_EQ(codeOf(cut), Errc::linkLost);
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST(SessionDownload, SavesWhatItSays) {
  play<SessionScene>([](SessionScene& scene) {
    const Bytes& content = storedRecording(2);
    const auto id = scene.store->put(content, "2024-05-17 09:30:00");
    scene.store->put(storedRecording(1, 2));
    const auto saved = scene.session->download(scene.file("a.opus")).wait();
    expectSaved(scene, saved, scene.file("a.opus"), content);
    EXPECT_EQ(saved->recording.id, id);
    EXPECT_EQ(saved->recording.bytes, content.size());
    EXPECT_EQ(saved->recording.created, scene.store->held.at(id).created);
    EXPECT_TRUE(saved->checked);
    EXPECT_EQ(saved->resumedAt, 0U);
    EXPECT_EQ(scene.store->count(), 1U);
    struct stat status {};
    ASSERT_EQ(::stat(scene.file("a.opus").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime, saved->recording.created->time_since_epoch().count());
  });
}

// ---- Healing ----

/// Faults of one download and the packets that they befall, counted from its first notification.
struct Damage {
  const char* name;
  std::vector<std::pair<std::uint64_t, sim::FaultAction>> faults;
};

TEST(SessionDownload, HealsWhatIsLostDoubledOrDamaged) {
  const sim::FaultAction drop{Fault::drop, {}}, twice{Fault::duplicate, {}}, cut{Fault::disconnect, {}};
  const auto damage = [](std::size_t position) { return sim::FaultAction{Fault::corrupt, {}, position}; };
  const std::vector<Damage> table{{"a packet is lost", {{100, drop}}},
                                  {"the first packet is lost", {{3, drop}}},
                                  {"a packet comes twice", {{50, twice}}},
                                  {"one lost and one twice", {{50, twice}, {70, drop}}},
                                  {"one twice, one lost, in one page", {{50, twice}, {52, drop}}},
                                  {"a packet is damaged", {{50, damage(40)}}},
                                  {"the first is damaged, so that it is no Ogg", {{3, damage(12)}}},
                                  {"its flags are damaged", {{3, damage(17)}}},
                                  {"the first is damaged twice", {{3, damage(12)}, {394, damage(13)}}},
                                  {"in the filler", {{390, damage(40)}}},
                                  {"the last but one is lost", {{391, drop}}},
                                  {"the last is lost", {{393, drop}}},
                                  {"lost, then the link too", {{100, drop}, {200, cut}}},
                                  {"over two links", {{100, cut}, {200, damage(20)}, {300, cut}}}};
  playEach<SessionScene>(table, [](SessionScene& scene, const Damage& damaged) {
    SCOPED_TRACE(damaged.name);
    for (const auto& [number, fault] : damaged.faults)
      scene.faults.add(LinkEvent::notification, number, fault);
    const Bytes& content = storedRecording(1);
    scene.store->put(content);
    const auto saved = scene.session->download(scene.file("a")).wait();
    expectSaved(scene, saved, scene.file("a"), content);
    EXPECT_TRUE(saved && saved->checked);
  });
}

// Each byte of a packet's head, and its first and last of data.
TEST(SessionDownload, HealsAPacketWhateverByteIsDamaged) {
  for (const std::uint64_t packet : {3U, 100U, 393U}) {
    for (const std::size_t position : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U, 95U}) {
      play<SessionScene>([&](SessionScene& scene) {
        scene.faults.add(LinkEvent::notification, packet, {Fault::corrupt, {}, position});
        const Bytes& content = storedRecording(1);
        scene.store->put(content);
        SCOPED_TRACE(std::to_string(packet) + " " + std::to_string(position));
        expectSaved(scene, scene.session->download(scene.file("a")).wait(), scene.file("a"), content);
      });
    }
  }
}

TEST(SessionDownload, GoesOnWhereTheRecorderFellSilent) {
  play<SessionScene>([](SessionScene& scene) {
    for (std::uint64_t i = 200; i <= 393; ++i)
      scene.faults.add(LinkEvent::notification, i, {Fault::drop, {}});
    const Bytes& content = storedRecording(1);
    scene.store->put(content);
    const Duration begin = scene.now();
    expectSaved(scene, scene.session->download(scene.file("a"), {}, Limits().silence(3s)).wait(),
                scene.file("a"), content);
    EXPECT_LE(scene.now() - begin, 10s);
  });
}

// What is no Ogg, or ends without saying so, or is damaged in the store: accepted when two downloads are
// alike.
TEST(SessionDownload, AcceptsContentThatDoesNotCheckOnlyTwiceAlike) {
  Bytes wrongSum = storedRecording(2);
  wrongSum.at(20000) ^= 1;
  Bytes filled = storedRecording(1);
  filled.back() = 0xFF;
  const std::vector<Bytes> contents{storedRecording(1, 1, Content::noOgg), wrongSum, filled, Bytes(32768)};
  for (const Bytes& content : contents) {
    for (const std::uint64_t damaged : {0U, 3U, 200U, 600U, 900U}) {
      play<SessionScene>([&](SessionScene& scene) {
        scene.store->put(content);
        if (damaged != 0) scene.faults.add(LinkEvent::notification, damaged, {Fault::corrupt, {}, 30});
        const auto saved = scene.session->download(scene.file("a")).wait();
        SCOPED_TRACE("content " + std::to_string(&content - contents.data()) + " damaged at " +
                     std::to_string(damaged));
        expectSaved(scene, saved, scene.file("a"), content);
        EXPECT_EQ(saved && saved->checked, &content == &contents.at(2)) << "each of its pages is";
      });
    }
  }
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1, 1, Content::endless));
    expectSaved(scene, scene.session->download(scene.file("a")).wait(), scene.file("a"),
                storedRecording(1, 1, Content::endless));
  });
}

// The same packets lost or doubled in both downloads: alike, as long as the recording, and not the recording.
TEST(SessionDownload, IsNotTakenInByTwoDownloadsThatAreAlikeByChance) {
  struct Case {
    const char* name;
    Content content;
    int lost, doubled;
  };
  constexpr std::array table{Case{"its beginning for filler", Content::ogg, 0, 370},
                             Case{"a packet twice for its end", Content::noOgg, -1, 122}};
  playEach<SessionScene>(table, [](SessionScene& scene, const Case& test) {
    SCOPED_TRACE(test.name);
    const Bytes& content = storedRecording(1, 1, test.content);
    scene.store->put(content);
    int lost = 0, doubled = 0;
    scene.link->onUpdate = [&](const Bytes& value) -> std::vector<Bytes> {
      if (value.size() != 96 || value.at(0) != 3) return {value};
      const int number = value.at(8) + 256 * value.at(9);
      if (number == test.lost && lost < 2) return ++lost, std::vector<Bytes>{};
      if (number == test.doubled && doubled < 2) return ++doubled, std::vector{value, value};
      return {value};
    };
    expectSaved(scene, scene.session->download(scene.file("a")).wait(), scene.file("a"), content);
  });
}

// ---- Continuing ----

TEST(SessionDownload, ContinuesInTheNextSessionFromTheLastPageThatChecks) {
  for (const std::string change : {"", "behind it", "in it", "shorter", "empty"}) {
    play<SessionScene>([&](SessionScene& scene) {
      SCOPED_TRACE(change);
      const Bytes& content = storedRecording(2);
      scene.store->put(content);
      cutShort(scene, scene.file("a"), 500);
      const std::string part = scene.file("a.part");
      std::string there = contentOf(part);
      if (change == "behind it") there += std::string(5000, 'x');
      if (change == "in it") there.at(12000) ^= 1;
      if (change == "shorter") there.resize(7000);
      if (change == "empty") there.clear();
      if (!change.empty()) writeFile(part, there);
      scene.frames.clear();
      scene.session = scene.open();
      const auto saved = scene.session->download(scene.file("a")).wait();
      expectSaved(scene, saved, scene.file("a"), content);
      EXPECT_TRUE(saved && (saved->resumedAt > 0) == (change != "empty"));
      EXPECT_TRUE(saved && saved->checked);
      EXPECT_EQ(scene.framesLike("0382"), 1U) << "asked once, from where it ended";
    });
  }
}

// The same size and, what is more, the same file name: only id and time tell them apart.
TEST(SessionDownload, NeverContinuesAnotherRecordingOfTheSameSize) {
  for (const char* const created : {"2024-05-17 09:30:00", "2024-05-18 10:00:00"}) {
    for (const Content kind : {Content::ogg, Content::noOgg}) {
      play<SessionScene>([&](SessionScene& scene) {
        scene.store->removed.insert(scene.store->put(storedRecording(1, 1, kind)));
        cutShort(scene, scene.file("a"), 200);
        scene.store->deleteFirst();
        const Bytes& second = storedRecording(1, 2, kind);
        scene.store->put(second, created);
        const auto saved = scene.session->download(scene.file("a")).wait();
        expectSaved(scene, saved, scene.file("a"), second);
        EXPECT_EQ(saved->resumedAt, 0U);
      });
    }
  }
}

}  // namespace
}  // namespace kwtsdk::testing
