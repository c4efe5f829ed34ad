#include <gtest/gtest.h>
#include <kwtsdk/settings.h>

#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

using namespace testing;

TEST(FileSettings, OnlyAFlushReachesTheFileAndKeepsTheKeysOfOthers) {
  const TemporaryFolder folder;
  const std::string path = folder.file("a/b/settings");
  const auto one = fileSettings(path), other = fileSettings(path);
  EXPECT_EQ(one->read("a"), std::nullopt);
  EXPECT_EQ(other->read("a"), std::nullopt);
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
  EXPECT_EQ(settings->read("good"), 7U);
  EXPECT_EQ(settings->read("last"), 9U);
  EXPECT_EQ(settings->read("bad"), std::nullopt);
  EXPECT_EQ(settings->read("huge"), std::nullopt);
  settings->flush();
  EXPECT_EQ(contentOf(path), "good 7\nlast 9\n");

  const auto unwritable = fileSettings(folder.path());  // a folder stands in the way
  unwritable->write("k", 1);
  unwritable->flush();
  EXPECT_EQ(unwritable->read("k"), 1U);
}

}  // namespace
}  // namespace kwtsdk
