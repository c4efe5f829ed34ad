// Where downloads go, which recording they are of, and what becomes of the recorder's copy.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "tests/session/session_host.h"
#include "tests/support/failing_sync.h"

namespace kwtsdk::testing {
namespace {

// ---- The file ----

TEST(SessionDownload, AFileThatIsThereIsNeverTouched) {
  const Bytes& content = storedRecording(2);
  const std::string whole = text(content), other = text(storedRecording(2, 2));
  for (const std::string& there : {whole, other, whole.substr(0, 40000), whole + "x", std::string()}) {
    play<SessionScene>([&](SessionScene& scene) {
      scene.store->put(content);
      writeFile(scene.file("a"), there);
      writeFile(scene.file("a.part.id"), "of one that was killed behind the rename");
      const auto saved = scene.session->download(scene.file("a")).wait();
      EXPECT_EQ(codeOf(saved), there == whole ? kOk : std::error_code(Errc::fileUnusable));
      EXPECT_TRUE(contentOf(scene.file("a")) == there);
      EXPECT_EQ(std::filesystem::exists(scene.file("a.part.id")), there != whole);
      EXPECT_EQ(scene.store->count(), there == whole ? 0U : 1U);
    });
  }
}

TEST(SessionDownload, AnOutputThatCannotBeWrittenLeavesTheRecordersCopy) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1));
    ::mkfifo(scene.file("pipe").c_str(), 0600);
    for (const std::string file : {".", "pipe", "missing/a", "pipe/a"}) {
      EXPECT_EQ(codeOf(scene.session->download(scene.file(file)).wait()), Errc::fileUnusable) << file;
      EXPECT_LE(scene.now(), 1s);
    }
    EXPECT_EQ(scene.store->count(), 1U);
  });
}

TEST(SessionDownload, AFullDiskLeavesTheRecordersCopyAndTheSameCallGoesOn) {
  playEach<SessionScene>(std::array<rlim_t, 5>{0, 1, 84, 5000, 32767}, [](SessionScene& scene, rlim_t size) {
    scene.store->put(storedRecording(1));
    {
      const FullDisk full(size);
      EXPECT_EQ(codeOf(scene.session->download(scene.file("a")).wait()), Errc::fileUnusable) << size;
      EXPECT_FALSE(std::filesystem::exists(scene.file("a")));
    }
    expectSaved(scene, scene.session->download(scene.file("a")).wait(), storedRecording(1));
  });
}

TEST(SessionDownload, NothingIsDeletedThatTheDiskHasNotTaken) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1));
    const FailingSync failing;
    EXPECT_EQ(codeOf(scene.session->download(scene.file("a")).wait()), Errc::fileUnusable);
    EXPECT_EQ(scene.store->count(), 1U);
  });
}

// ---- Which recording, and its deletion ----

TEST(SessionDownload, SavesTheExpectedRecordingOrNone) {
  play<SessionScene>([](SessionScene& scene) {
    const auto download = [&](std::uint32_t expected) {
      return codeOf(scene.session->download(scene.file("a"), {}, {}, expected).wait());
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
    EXPECT_EQ(scene.store->count(), 2U);
    EXPECT_EQ(download(10), kOk);
  });
}

TEST(SessionDownload, ToldToKeepSendsNeitherNoticeNorDeletion) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1));
    const auto saved = scene.session->download(scene.file("a"), DownloadOptions().keep()).wait();
    ASSERT_TRUE(saved);
    EXPECT_TRUE(saved->deleted == Effect::none && !saved->notDeleted);
    EXPECT_EQ(scene.framesLike("1382") + scene.framesLike("0482"), 0U);
    EXPECT_TRUE(scene.store->isOnDisk(storedRecording(1)));
  });
}

TEST(SessionDownload, TellsWhetherTheRecorderHasDeletedItsCopy) {
  const std::tuple<const char*, Effect, std::optional<Errc>> table[]{
      {"04820800000000000a000000", Effect::done, {}},
      {"04820800030000000a000000", Effect::none, Errc::recordingInUse},
      {"04820800010000000a000000", Effect::none, Errc::notFirst},
      {"", Effect::unknown, Errc::stalled}};  // no answer
  playEach<SessionScene>(table, [](SessionScene& scene, const std::string& answer, Effect deleted, auto why) {
    scene.store->put(storedRecording(1));
    scene.model->setReplyFilter([&](const Bytes& request, const Bytes& reply) -> std::optional<Bytes> {
      if (request.at(0) != 4) return reply;
      return answer.empty() ? std::nullopt : std::optional(internal::toData(answer));
    });
    const auto saved = scene.session->download(scene.file("a"), {}, Limits().silence(2s)).wait();
    ASSERT_TRUE(saved) << saved.error().text();
    EXPECT_EQ(saved->deleted, deleted);
    EXPECT_EQ(saved->notDeleted.has_value(), why.has_value());
    EXPECT_TRUE(!why || *saved->notDeleted == *why);
    EXPECT_TRUE(scene.store->isOnDisk(storedRecording(1)));
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

// ---- All of them ----

TEST(SessionDownloadAll, SavesEachUnderItsNameOverBrokenLinks) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1, 1), "2024-05-17 09:30:00");
    scene.store->put(storedRecording(2, 2), "2024-05-17 09:30:00");
    scene.store->put(storedRecording(1, 3, Content::noOgg), "2001-01-02 03:04:05");
    for (const std::uint64_t number : {200U, 700U, 1300U})
      scene.faults.add(LinkEvent::notification, number, {Fault::disconnect, {}});
    const auto harvest = scene.session->downloadAll(scene.path).wait();
    ASSERT_TRUE(harvest) << harvest.error().text();
    ASSERT_EQ(harvest->saved.size(), 3U);
    EXPECT_TRUE(harvest->left.empty());
    const std::array names{"20240517-093000-10.opus", "20240517-093000-11.opus", "20010102-030405-12.opus"};
    for (std::uint32_t i = 0; i < names.size(); ++i) {
      EXPECT_EQ(harvest->saved.at(i).file, scene.file(names.at(i)));
      EXPECT_TRUE(contentOf(scene.file(names.at(i))) == text(scene.store->held.at(10 + i).content));
    }
    EXPECT_EQ(scene.store->count(), 0U);
    EXPECT_TRUE(scene.session->downloadAll(scene.path).wait()) << "of none";
  });
}

TEST(SessionDownloadAll, TellsWhatWasSavedWhenItFails) {
  play<SessionScene>([](SessionScene& scene) {
    for (const unsigned number : {1U, 2U, 3U}) scene.store->put(storedRecording(1, number));
    writeFile(scene.file("11"), "my letter");
    const auto harvest = scene.session->downloadAll(scene.path, DownloadOptions().name("{id}")).wait();
    ASSERT_EQ(codeOf(harvest), Errc::fileUnusable);
    ASSERT_NE(harvest.partial(), nullptr);
    EXPECT_EQ(harvest.partial()->saved.size(), 1U);
    EXPECT_EQ(harvest.partial()->left.size(), 2U);
    EXPECT_EQ(contentOf(scene.file("11")), "my letter");
  });
}

}  // namespace
}  // namespace kwtsdk::testing
