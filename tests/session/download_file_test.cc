// Which recording a download is of, and what becomes of the recorder's copy.

#include <gtest/gtest.h>

#include "tests/session/session_host.h"
#include "tests/support/failing_sync.h"

namespace kwtsdk::testing {
namespace {

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
