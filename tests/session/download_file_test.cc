// Where downloads go, which recording they are of, and what becomes of the recorder's copy.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include "tests/session/session_host.h"
#include "tests/support/failing_sync.h"

namespace kwtsdk::testing {
namespace {

using session::Saved;

// ---- The file ----

TEST(SessionDownload, AFileThatIsThereIsNeverTouched) {
  const Bytes& content = storedRecording(2);
  std::string wrong = text(content), shorter = text(content).substr(0, 40000);
  wrong.at(30) ^= 1;
  struct Case {
    const char* name;
    std::string there;
    bool isIt;
  };
  const std::vector<Case> table{{"the recording", text(content), true},
                                {"another of this size", text(storedRecording(2, 2)), false},
                                {"damaged", wrong, false},
                                {"a part", shorter, false},
                                {"longer", text(content) + "x", false},
                                {"something", "my letter", false},
                                {"nothing", "", false}};
  playEach<SessionScene>(table, [&](SessionScene& scene, const Case& test) {
    SCOPED_TRACE(test.name);
    scene.store->put(content);
    writeFile(scene.file("a"), test.there);
    writeFile(scene.file("a.part.id"), "of one that was killed behind the rename");
    const auto saved = scene.session->download(scene.file("a")).wait();
    EXPECT_EQ(codeOf(saved), test.isIt ? kOk : std::error_code(Errc::fileUnusable));
    EXPECT_TRUE(contentOf(scene.file("a")) == test.there);
    EXPECT_EQ(std::filesystem::exists(scene.file("a.part.id")), !test.isIt);
    EXPECT_EQ(scene.store->count(), test.isIt ? 0U : 1U);
  });
}

TEST(SessionDownload, AnOutputThatCannotBeWrittenLeavesTheRecordersCopy) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1));
    std::filesystem::create_directory(scene.file("folder"));
    ::mkfifo(scene.file("pipe").c_str(), 0600);
    writeFile(scene.file("file"), "x");
    ::mkfifo(scene.file("b.part").c_str(), 0600);
    std::filesystem::create_directory(scene.file("c.part"));
    for (const std::string file : {"folder", "pipe", "missing/a", "file/a", "b", "c", ""}) {
      const Duration begin = scene.now();
      const auto saved = scene.session->download(file.empty() ? "" : scene.file(file)).wait();
      ASSERT_FALSE(saved) << file;
      EXPECT_TRUE(saved.error() == Errc::fileUnusable || (file.empty() && saved.error() == Errc::badArgument))
          << file << ": " << saved.error().text();
      EXPECT_LE(scene.now() - begin, 1s);
    }
    EXPECT_EQ(scene.store->count(), 1U);
  });
}

TEST(SessionDownload, AFullDiskLeavesTheRecordersCopyAndTheSameCallGoesOn) {
  for (const rlim_t size : {0U, 1U, 84U, 5000U, 32000U, 32767U}) {
    play<SessionScene>([&](SessionScene& scene) {
      const Bytes& content = storedRecording(1);
      scene.store->put(content);
      {
        const FullDisk full(size);
        const auto saved = scene.session->download(scene.file("a")).wait();
        EXPECT_EQ(codeOf(saved), Errc::fileUnusable) << size;
        EXPECT_FALSE(saved.has_value() || saved.error().text().empty());
        EXPECT_FALSE(std::filesystem::exists(scene.file("a")));
      }
      expectSaved(scene, scene.session->download(scene.file("a")).wait(), scene.file("a"), content);
    });
  }
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
    const auto ask = [&](std::uint32_t expected) {
      return codeOf(scene.session->download(scene.file("a"), {}, {}, expected).wait());
    };
    EXPECT_EQ(ask(10), Errc::storeEmpty);
    EXPECT_EQ(codeOf(scene.session->remove(10).wait()), Errc::storeEmpty);
    scene.store->put(storedRecording(1));
    scene.store->put(storedRecording(1, 2));
    EXPECT_EQ(ask(11), Errc::notFirst);
    EXPECT_EQ(ask(12), Errc::noSuchRecording);
    EXPECT_EQ(ask(9), Errc::noSuchRecording);
    EXPECT_EQ(codeOf(scene.session->remove(11).wait()), Errc::notFirst);
    EXPECT_EQ(codeOf(scene.session->remove(12).wait()), Errc::noSuchRecording);
    EXPECT_EQ(scene.store->count(), 2U);
    EXPECT_EQ(ask(10), kOk);
  });
}

TEST(SessionDownload, ToldToKeepSendsNeitherNoticeNorDeletion) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1));
    const auto saved = scene.session->download(scene.file("a"), DownloadOptions().keep()).wait();
    ASSERT_TRUE(saved);
    EXPECT_EQ(saved->deleted, Effect::none);
    EXPECT_FALSE(saved->notDeleted);
    EXPECT_EQ(scene.framesLike("1382") + scene.framesLike("0482"), 0U);
    EXPECT_TRUE(scene.store->isOnDisk(storedRecording(1)));
  });
}

TEST(SessionDownload, TellsWhetherTheRecorderHasDeletedItsCopy) {
  struct Case {
    const char* answer;  // null: none
    Effect deleted;
    std::optional<Errc> why;
  };
  const std::vector<Case> table{{"0482080000000000 0a000000", Effect::done, {}},
                                {"0482080003000000 0a000000", Effect::none, Errc::recordingInUse},
                                {"0482080001000000 0a000000", Effect::none, Errc::notFirst},
                                {nullptr, Effect::unknown, Errc::stalled}};
  playEach<SessionScene>(table, [](SessionScene& scene, const Case& test) {
    scene.store->put(storedRecording(1));
    scene.onFrame = [](const std::string& frame) { return !frame.starts_with("0482"); };
    if (test.answer != nullptr) {
      scene.onFrame = nullptr;
      std::string answer = test.answer;
      std::erase(answer, ' ');
      scene.model->setReplyFilter([answer = internal::toData(answer)](const Bytes& request, Bytes reply) {
        return std::optional(request.at(0) == 4 ? answer : reply);
      });
    }
    const auto saved = scene.session->download(scene.file("a"), {}, Limits().silence(2s)).wait();
    ASSERT_TRUE(saved) << saved.error().text();
    EXPECT_EQ(saved->deleted, test.deleted);
    EXPECT_EQ(saved->notDeleted.has_value(), test.why.has_value());
    EXPECT_TRUE(!test.why || *saved->notDeleted == *test.why);
    EXPECT_TRUE(scene.store->isOnDisk(storedRecording(1)));
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
    for (std::size_t i = 0; i < names.size(); ++i) {
      EXPECT_EQ(harvest->saved.at(i).file, scene.file(names.at(i)));
      EXPECT_TRUE(contentOf(scene.file(names.at(i))) ==
                  text(scene.store->held.at(static_cast<std::uint32_t>(10 + i)).content));
    }
    EXPECT_EQ(scene.store->count(), 0U);
    EXPECT_TRUE(scene.session->downloadAll(scene.path).wait()) << "of none";
  });
}

TEST(SessionDownloadAll, TellsWhatWasSavedWhenItFails) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1, 1));
    scene.store->put(storedRecording(1, 2));
    scene.store->put(storedRecording(1, 3));
    writeFile(scene.file("11"), "my letter");
    const auto harvest = scene.session->downloadAll(scene.path, DownloadOptions().name("{id}")).wait();
    ASSERT_EQ(codeOf(harvest), Errc::fileUnusable);
    ASSERT_NE(harvest.partial(), nullptr);
    EXPECT_EQ(harvest.partial()->saved.size(), 1U);
    EXPECT_EQ(harvest.partial()->left.size(), 2U);
    std::filesystem::remove(scene.file("11"));
    EXPECT_EQ(scene.session->downloadAll(scene.path, DownloadOptions().name("{id}")).wait()->saved.size(),
              2U);
  });
}

}  // namespace
}  // namespace kwtsdk::testing
