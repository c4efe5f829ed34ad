// No recording is lost: what is checked, healed, continued, and when the recorder may delete its copy.

#include <gtest/gtest.h>

#include "tests/session/session_host.h"

namespace kwtsdk::testing {
namespace {

session::Operation<session::Saved> download(SessionScene& scene, const Limits& limits = {}) {
  return scene.session->download(scene.file("a"), {}, limits);
}

// ---- Healing ----

/// Faults of one download and the packets that they befall, counted from its first notification.
using Damage = std::vector<std::pair<std::uint64_t, sim::FaultAction>>;

sim::FaultAction damageAt(std::size_t position) { return {Fault::corrupt, {}, position}; }

TEST(SessionDownload, HealsWhatIsLostDoubledOrDamaged) {
  const sim::FaultAction drop{Fault::drop, {}}, twice{Fault::duplicate, {}}, cut{Fault::disconnect, {}};
  std::vector<std::pair<std::string, Damage>> table{
      {"nothing", {}},
      {"one lost and one twice", {{50, twice}, {70, drop}}},
      {"one twice, one lost, in one page", {{50, twice}, {52, drop}}},
      {"its flags are damaged", {{3, damageAt(17)}}},
      {"the first is damaged twice", {{3, damageAt(12)}, {394, damageAt(13)}}},
      {"in the filler", {{390, damageAt(40)}}},
      {"lost, then the link too", {{100, drop}, {200, cut}}},
      {"over two links", {{100, cut}, {200, damageAt(20)}, {300, cut}}}};
  Damage silence;
  for (std::uint64_t packet = 200; packet <= 393; ++packet) silence.emplace_back(packet, drop);
  table.emplace_back("the recorder falls silent", silence);
  for (const std::uint64_t packet : {3U, 100U, 393U}) {  // each byte of its head, and first and last of data
    for (const std::size_t position : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U, 40U, 95U})
      table.push_back(
          {std::to_string(packet) + " at " + std::to_string(position), {{packet, damageAt(position)}}});
  }
  playEach<SessionScene>(table, [](SessionScene& scene, const std::string& name, const Damage& damage) {
    SCOPED_TRACE(name);
    for (const auto& [number, fault] : damage) scene.faults.add(LinkEvent::notification, number, fault);
    const auto id = scene.store->put(storedRecording(1));
    const auto saved = download(scene).wait();
    expectSaved(scene, saved, storedRecording(1));
    ASSERT_TRUE(saved && saved->checked);
    EXPECT_TRUE(saved->recording.id == id && saved->recording.bytes == 32768);
    EXPECT_EQ(saved->recording.created, scene.store->held.at(id).created);
  });
}

// What is no Ogg, or ends without saying so, or is damaged in the store: accepted when two downloads are
// alike.
TEST(SessionDownload, AcceptsContentThatDoesNotCheckOnlyTwiceAlike) {
  Bytes wrongSum = storedRecording(2);
  wrongSum.at(20000) ^= 1;
  Bytes filled = storedRecording(1);
  filled.back() = 0xFF;
  const std::vector<Bytes> contents{storedRecording(1, 1, Content::noOgg), wrongSum, filled, Bytes(32768),
                                    storedRecording(1, 1, Content::endless)};
  for (const Bytes& content : contents) {
    playEach<SessionScene>(std::array{0U, 3U, 200U, 600U, 900U}, [&](SessionScene& scene, unsigned damaged) {
      scene.store->put(content);
      if (damaged != 0) scene.faults.add(LinkEvent::notification, damaged, damageAt(30));
      const auto saved = download(scene).wait();
      SCOPED_TRACE("content " + shown(&content - contents.data()) + " damaged at " + shown(damaged));
      expectSaved(scene, saved, content);
      EXPECT_EQ(saved && saved->checked, &content == &contents[2] || &content == &contents[4])
          << "each of its pages is";
    });
  }
}

// The same packets lost or doubled in both downloads: alike, as long as the recording, and not the recording.
TEST(SessionDownload, IsNotTakenInByTwoDownloadsThatAreAlikeByChance) {
  // For filler its beginning is lost; and for its end a packet comes twice.
  const std::tuple<Content, int, int> table[]{{Content::ogg, 0, 370}, {Content::noOgg, -1, 122}};
  playEach<SessionScene>(table, [](SessionScene& scene, Content kind, int missing, int twice) {
    scene.store->put(storedRecording(1, 1, kind));
    int lost = 0, doubled = 0;
    scene.link->onUpdate = [&](const Bytes& value) -> std::vector<Bytes> {
      if (value.size() != 96 || value.at(0) != 3) return {value};
      const int number = value.at(8) + 256 * value.at(9);
      if (number == missing && lost < 2) return ++lost, std::vector<Bytes>{};
      if (number == twice && doubled < 2) return ++doubled, std::vector{value, value};
      return {value};
    };
    expectSaved(scene, download(scene).wait(), storedRecording(1, 1, kind));
  });
}

// ---- Continuing ----

TEST(SessionDownload, ContinuesInTheNextSessionFromTheLastPageThatChecks) {
  for (const std::string change : {"", "behind it", "in it", "shorter", "empty"}) {
    play<SessionScene>([&](SessionScene& scene) {
      SCOPED_TRACE(change);
      scene.store->put(storedRecording(2));
      scene.faults.add(LinkEvent::notification, 500, {Fault::disconnect, {}});
      EXPECT_EQ(codeOf(download(scene, Limits().reconnects(0)).wait()), Errc::linkLost);
      const std::string part = scene.file("a.part");
      std::string there = contentOf(part);
      if (change == "behind it") there += std::string(5000, 'x');
      if (change == "in it") there.at(12000) ^= 1;
      if (change == "shorter") there.resize(7000);
      if (change == "empty") there.clear();
      if (!change.empty()) writeFile(part, there);
      scene.frames.clear();
      scene.session = scene.open();
      const auto saved = download(scene).wait();
      expectSaved(scene, saved, storedRecording(2));
      EXPECT_TRUE(saved && saved->checked && (saved->resumedAt > 0) == (change != "empty"));
      EXPECT_EQ(scene.framesLike("0382"), 1U) << "asked once, from where it ended";
    });
  }
}

}  // namespace
}  // namespace kwtsdk::testing
