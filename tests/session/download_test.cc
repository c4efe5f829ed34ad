// No recording is lost: what is checked, healed, continued, of which recording a download is,
// and when the recorder may delete its copy.

#include <gtest/gtest.h>

#include "tests/session/session_host.h"
#include "tests/support/failing_sync.h"

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

TEST(SessionDownload, NothingIsDeletedThatTheDiskHasNotTaken) {
  using Of = FailingSync::Of;
  playEach<SessionScene>(std::array{Of::everything, Of::folders}, [](SessionScene& scene, Of of) {
    scene.store->put(storedRecording(1));
    std::optional<FailingSync> failing;
    scene.onFrame = [&](const std::string& frame) {
      if (frame.starts_with("0382")) failing.emplace(of);
      return true;
    };
    EXPECT_EQ(codeOf(scene.session->download(scene.file("a")).wait()), Errc::fileUnusable);
    EXPECT_EQ(scene.store->count(), 1U);
    EXPECT_EQ(std::filesystem::exists(scene.file("a")), of == Of::folders);
  });
}

TEST(SessionDownload, SavesTheExpectedRecordingOrNone) {
  play<SessionScene>([](SessionScene& scene) {
    const auto download = [&](std::uint32_t expected) {
      return codeOf(scene.session->download(scene.file("a"), DownloadOptions().keep(), {}, expected).wait());
    };
    const auto remove = [&](std::uint32_t id) { return codeOf(scene.session->remove(id).wait()); };
    EXPECT_EQ(download(10), Errc::storeEmpty);
    EXPECT_EQ(remove(10), Errc::storeEmpty);
    scene.store->put(storedRecording(1));
    scene.store->put(storedRecording(1, 2));
    for (const auto& ask : {std::function(download), std::function(remove)}) {
      EXPECT_EQ(ask(11), Errc::notFirst);
      EXPECT_EQ(ask(12), Errc::noSuchRecording);
      EXPECT_EQ(ask(9), Errc::noSuchRecording);
    }
    EXPECT_EQ(download(10), kOk);
    EXPECT_EQ(scene.framesLike("1382") + scene.framesLike("0482"), 0U) << "it is told to keep its copy";
  });
}

TEST(SessionDownload, TellsWhyTheRecorderHasNotDeletedItsCopy) {
  const std::pair<std::uint8_t, Errc> table[]{{1, Errc::notFirst},
                                              {2, Errc::noSuchRecording},
                                              {3, Errc::recordingInUse},
                                              {4, Errc::storeEmpty},
                                              {7, Errc::refused}};  // which may be a damaged 0
  playEach<SessionScene>(table, [](SessionScene& scene, std::uint8_t result, Errc why) {
    scene.store->put(storedRecording(1));
    scene.link->onUpdate = [result](Bytes value) {
      if (value.at(0) == 0x04) value.at(4) = result;
      return std::vector<Bytes>{value};
    };
    const auto saved = scene.session->download(scene.file("a")).wait();
    ASSERT_TRUE(saved && saved->notDeleted);
    EXPECT_EQ(saved->notDeleted->code(), why);
    EXPECT_EQ(saved->deleted, why == Errc::refused ? Effect::unknown : Effect::none);
  });
}

// While the link is away another recording may take the place and the id of the one that was saved: here one
// of another day.
TEST(SessionDownload, AnotherRecordingOfTheSameIdIsNotDeletedUnseen) {
  const std::tuple<bool, std::string, std::error_code, std::size_t> table[]{
      {false, "1382", kOk, 0},
      {false, "0482", kOk, 0},
      {false, "0382", Errc::noSuchRecording, 0},
      {true, "1382", Errc::noSuchRecording, 0},
      {true, "0482", kOk, 1},  // which it saves too
      {true, "0382", Errc::noSuchRecording, 0}};
  playEach<SessionScene>(table, [](SessionScene& scene, bool isAll, auto cutAt, auto code, auto expected) {
    SCOPED_TRACE(cutAt + (isAll ? " of all" : " of one"));
    scene.store->put(storedRecording(1));
    std::size_t deletions = 0;
    bool isCut = false;
    scene.onFrame = [&](const std::string& frame) {
      if (isCut) deletions += frame.starts_with("0482");
      if (!frame.starts_with(cutAt) || std::exchange(isCut, true)) return true;
      scene.simLink->disconnect();
      return false;
    };
    scene.link->onUpdate = [&](Bytes value) {
      if (isCut && value.at(0) == 0x02) ++value.at(30);  // the day
      return std::vector<Bytes>{value};
    };
    EXPECT_EQ(isAll ? codeOf(scene.session->downloadAll(scene.path).wait())
                    : codeOf(scene.session->download(scene.file("a")).wait()),
              code);
    EXPECT_EQ(deletions, expected);
    EXPECT_TRUE(deletions == 0 || namesIn(scene.path).size() == 2);
  });
}

TEST(SessionDownloadAll, SavesEachUnderItsNameOverBrokenLinksAndTellsWhereItEnded) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1, 1), "2024-05-17 09:30:00");
    scene.store->put(storedRecording(2, 2), "2024-05-17 09:30:00");
    scene.store->put(storedRecording(1, 3, Content::noOgg), "2001-01-02 03:04:05");
    const std::array names{"20240517-093000-10.opus", "20240517-093000-11.opus", "20010102-030405-12.opus"};
    for (const std::uint64_t number : {200U, 700U, 1300U})
      scene.faults.add(LinkEvent::notification, number, {Fault::disconnect, {}});
    writeFile(scene.file(names[2]), "my letter");
    const auto ended = scene.session->downloadAll(scene.path).wait();
    ASSERT_EQ(codeOf(ended), Errc::fileUnusable);
    ASSERT_NE(ended.partial(), nullptr);
    EXPECT_TRUE(ended.partial()->saved.size() == 2 && ended.partial()->left.size() == 1);
    EXPECT_EQ(contentOf(scene.file(names[2])), "my letter");
    std::filesystem::remove(scene.file(names[2]));
    const auto rest = scene.session->downloadAll(scene.path).wait();
    ASSERT_TRUE(rest) << rest.error().text();
    EXPECT_TRUE(rest->saved.size() == 1 && rest->left.empty());
    EXPECT_EQ(rest->saved[0].file, scene.file(names[2]));
    for (std::uint32_t i = 0; i < names.size(); ++i)
      EXPECT_TRUE(contentOf(scene.file(names[i])) == text(scene.store->held.at(10 + i).content));
    EXPECT_EQ(scene.store->count(), 0U);
    EXPECT_TRUE(scene.session->downloadAll(scene.path).wait()) << "of none";
  });
}

}  // namespace
}  // namespace kwtsdk::testing
