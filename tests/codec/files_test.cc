#include <gtest/gtest.h>
#include <kwtsdk/files.h>
#include <sys/stat.h>

#include "platform/posix/files.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

using namespace testing;

TEST(Files, WritingNeverTruncates) {
  const TemporaryFolder folder;
  const std::string path = folder.file("f");
  writeFile(path, "0123456789");
  EXPECT_TRUE(getFileHandleForWrite(path)->write("abcd", 4));
  EXPECT_EQ(contentOf(path), "abcd456789");
  EXPECT_TRUE(getFileHandleForAppend(path)->write("xy", 2));
  EXPECT_EQ(contentOf(path), "abcd456789xy");
  EXPECT_TRUE(getFileHandleForAppend(folder.file("new"))->write("z", 1));
  EXPECT_EQ(contentOf(folder.file("new")), "z");
}

TEST(Files, WhatCannotBeOpenedIsNone) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
  for (const std::string& path :
       {folder.path(), folder.file("missing/f"), folder.file("pipe"), std::string()}) {
    EXPECT_EQ(getFileHandleForWrite(path), nullptr) << path;
  }
}

TEST(Files, NothingIsWrittenAfterAFailedWrite) {
  const auto full = getFileHandleForWrite("/dev/full");
  ASSERT_TRUE(full);
  EXPECT_FALSE(full->write("x", 1));
  const std::string failure = full->failure();
  EXPECT_NE(failure, "");
  closeFileHandle(full);
  closeFileHandle(full);
  closeFileHandle(nullptr);
  EXPECT_FALSE(full->write("x", 1));
  EXPECT_EQ(full->failure(), failure);
  EXPECT_FALSE(full->isOpen());
}

TEST(Files, SizesAndWholeContents) {
  const TemporaryFolder folder;
  const std::string large(200000, 'x');
  writeFile(folder.file("large"), large);
  writeFile(folder.file("empty"), "");
  EXPECT_EQ(fileSize(folder.file("large")), 200000);
  EXPECT_EQ(fileSize(folder.file("missing")), 0);
  EXPECT_TRUE(fileIsExist(folder.file("empty")));
  EXPECT_FALSE(fileIsExist(folder.path()) || fileIsExist(folder.file("missing")));
  EXPECT_EQ(internal::dataOfFile(folder.file("large")), Bytes(large.begin(), large.end()));
  EXPECT_EQ(internal::dataOfFile(folder.file("empty")), Bytes{});
  EXPECT_EQ(internal::dataOfFile(folder.path()), std::nullopt);
  EXPECT_EQ(internal::dataOfFile(folder.file("missing")), std::nullopt);
  EXPECT_EQ(filesizeFromBlockNum(0xFFFFFFFF), 0xFFFFFFFFULL * 32768);
}

}  // namespace
}  // namespace kwtsdk
