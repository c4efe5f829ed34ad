#include <fcntl.h>
#include <gtest/gtest.h>
#include <kwtsdk/files.h>
#include <kwtsdk/settings.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "platform/posix/files.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {
namespace {

TEST(Files, WhatCannotBeOpenedIsNone) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
  for (const std::string& path :
       {folder.path(), folder.file("missing/f"), folder.file("pipe"), std::string()})
    EXPECT_EQ(getFileHandleForWrite(path), nullptr) << path;
}

TEST(Files, NothingIsWrittenAfterAFailedWrite) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  ::close(pipe[0]);
  FileHandle unread(pipe[1]);
  EXPECT_FALSE(unread.write("x", 1)) << "and no SIGPIPE";
  EXPECT_EQ(unread.failure(), "Broken pipe");

  const auto full = getFileHandleForWrite("/dev/full");
  ASSERT_TRUE(full && !full->write("x", 1));
  const std::string failure = full->failure();
  EXPECT_NE(failure, "");
  for (const auto& handle : {full, full, std::shared_ptr<FileHandle>()}) closeFileHandle(handle);
  EXPECT_FALSE(full->write("x", 1) || full->isOpen());
  EXPECT_EQ(full->failure(), failure);
}

TEST(Files, SizesAndWholeContents) {
  const TemporaryFolder folder;
  const std::string large = folder.file("large");
  writeFile(large, std::string(200000, 'x'));
  EXPECT_TRUE(fileSize(large) == 200000 && internal::dataOfFile(large) == Bytes(200000, 'x'));
  EXPECT_FALSE(fileIsExist(folder.path()) || internal::dataOfFile(folder.path()));
  EXPECT_EQ(filesizeFromBlockNum(0xFFFFFFFF), 0xFFFFFFFFULL * 32768);
}

TEST(FileSettings, OnlyAFlushReachesTheFileAndKeepsTheKeysOfOthers) {
  const TemporaryFolder folder;
  const std::string path = folder.file("a/b/settings");
  const auto one = fileSettings(path), other = fileSettings(path);
  EXPECT_FALSE(one->read("a") || other->read("a"));
  one->write("a", 1);
  EXPECT_EQ(fileSettings(path)->read("a"), std::nullopt);
  one->flush();
  other->write("b", ~0ULL);
  other->flush();
  EXPECT_EQ(contentOf(path), "a 1\nb 18446744073709551615\n");
  one->remove("a");
  one->flush();
  other->flush();
  EXPECT_EQ(contentOf(path), "b 18446744073709551615\n");
  EXPECT_EQ(fileSettings(path)->read("b"), ~0ULL);
  fileSettings(path)->write("c", 3);  // which goes at once, and takes it to the file
  EXPECT_EQ(fileSettings(path)->read("c"), 3U);
}

TEST(FileSettings, SurvivesWhatItCannotUse) {
  const TemporaryFolder folder;
  const std::string path = folder.file("settings");
  // A half-written replacement beside the file is what a crash during a flush leaves.
  writeFile(path, "good 7\nnovalue\nbad x\nhuge 99999999999999999999\nlast 9");
  writeFile(path + ".new", "goo");
  const auto settings = fileSettings(path);
  for (const char* key : {"bad", "huge", "novalue"}) EXPECT_EQ(settings->read(key), std::nullopt) << key;
  EXPECT_TRUE(settings->read("good") == 7U && settings->read("last") == 9U);
  settings->flush();
  EXPECT_EQ(contentOf(path), "good 7\nlast 9\n");

  const auto unwritable = fileSettings(folder.path());  // a folder stands in the way
  unwritable->write("k", 1);
  unwritable->flush();
  EXPECT_EQ(unwritable->read("k"), 1U);
}

TEST(FileSettings, NeverReplacesOrWaitsForWhatIsNotItsOwn) {
  const TemporaryFolder folder;
  const auto put = [](const std::string& path, const char* key) {
    const auto settings = fileSettings(path);
    settings->write(key, 2);
    settings->flush();
    return settings;
  };
  ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
  put(folder.file("pipe"), "a");
  EXPECT_TRUE(std::filesystem::is_fifo(folder.file("pipe")));

  const std::string path = folder.file("settings"), link = folder.file("link"),
                    theirs = folder.file("theirs");
  writeFile(path, "a 1\n");
  writeFile(theirs, "x");
  std::filesystem::create_symlink(path, link);
  std::filesystem::create_symlink(theirs, path + ".new");
  EXPECT_EQ(put(link, "b 3\nc")->read("a"), 1U);
  EXPECT_TRUE(std::filesystem::is_symlink(link) && contentOf(theirs) == "x");
  EXPECT_EQ(fileSettings(path)->read("b"), std::nullopt);  // not forged by a key with two lines
  EXPECT_EQ(fileSettings(path)->read("b 3\nc"), 2U);

  const internal::Descriptor other(::open(folder.path().c_str(), O_RDONLY));
  ASSERT_EQ(::flock(other.get(), LOCK_EX), 0);
  const auto waiting = put(path, "late");
  EXPECT_EQ(fileSettings(path)->read("late"), std::nullopt);
  ASSERT_EQ(::flock(other.get(), LOCK_UN), 0);
  waiting->flush();
  EXPECT_EQ(fileSettings(path)->read("late"), 2U);
}

}  // namespace
}  // namespace kwtsdk::testing
