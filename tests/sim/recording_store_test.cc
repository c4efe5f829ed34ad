#include <gtest/gtest.h>
#include <kwtsdk/sim/folder_store.h>
#include <kwtsdk/sim/memory_store.h>

#include <sys/stat.h>

#include "tests/support/temporary_folder.h"
#include "tests/support/thrown_by.h"

namespace kwtsdk::sim {
namespace {

using namespace testing;

std::string opus(const std::string& audio, char segments = 1) {
  return "OggS" + std::string(22, '\0') + segments + std::string(static_cast<std::size_t>(segments), 'x') +
         "OpusHead" + audio;
}

std::string read(const RecordingStore& store, std::size_t index, std::uint64_t offset, std::size_t length) {
  Bytes bytes(length, 0xAA);
  store.read(index, offset, bytes);
  return {bytes.begin(), bytes.end()};
}

TEST(MemoryStore, PadsWithZerosAndRefusesWhatNoRecorderHolds) {
  MemoryStore store(0x7FFFFFFF);
  store.add(Bytes(32768, 1));
  store.add(Bytes(32769, 2));
  EXPECT_EQ(read(store, 1, 32768, 3), std::string("\2\0\0", 3));
  EXPECT_EQ(read(store, 1, 1U << 31, 2), std::string(2, '\0'));
  EXPECT_TRUE(store.deleteFirst());
  EXPECT_EQ(store.firstId(), 1U) << "after the greatest id";
  EXPECT_TRUE(store.deleteFirst());
  EXPECT_FALSE(store.deleteFirst());
  for (std::size_t i = 0; i < RecordingStore::kMaximumCount; ++i) store.add({});
  EXPECT_THROW(store.add({}), std::length_error);
}

TEST(FolderStore, HoldsTheOpusFilesInNameOrderAndTouchesNothingElse) {
  const TemporaryFolder folder;
  const std::pair<const char*, std::string> others[]{
      {"notes.txt", "remember"},
      {"fake.opus", "OpusHead"},
      {"vorbis.ogg", "OggS" + std::string(22, '\0') + "\1x\1vorbis"},
      {"cut.opus", "OggS" + std::string(22, '\0') + "\xFF"},
      {".hidden.opus", opus("x")}};
  for (const auto& [name, content] : others) writeFile(folder.file(name), content);
  std::filesystem::create_directory(folder.file("deep"));
  writeFile(folder.file("deep/in.opus"), opus("x"));
  std::filesystem::create_symlink(folder.file("deep/in.opus"), folder.file("link.opus"));
  ASSERT_EQ(::mkfifo(folder.file("pipe.opus").c_str(), 0600), 0);
  writeFile(folder.file("b.opus"), opus("second"));
  writeFile(folder.file("a.anything"), opus(std::string(40000, 'a'), 2));

  const auto store = FolderStore::open(folder.path());
  ASSERT_EQ(store->count(), 2U);
  EXPECT_EQ(store->info(0).blocks, 2);
  EXPECT_EQ(read(*store, 0, 40036, 3), std::string("a\0\0", 3));
  EXPECT_EQ(read(*store, 1, 28, 16), "OpusHeadsecond" + std::string(2, '\0'));
  while (store->deleteFirst()) continue;
  EXPECT_EQ(store->count(), 0U);
  for (const auto& [name, content] : others) EXPECT_EQ(contentOf(folder.file(name)), content) << name;
}

TEST(FolderStore, DeletionRemovesTheFileAndTheIdsOutliveTheProgram) {
  const TemporaryFolder folder;
  for (const char* name : {"a", "b", "c"}) writeFile(folder.file(name), opus(name));
  EXPECT_TRUE(FolderStore::open(folder.path())->deleteFirst());

  const auto store = FolderStore::open(folder.path());
  EXPECT_FALSE(std::filesystem::exists(folder.file("a")));
  EXPECT_EQ(store->firstId(), 2U);
  EXPECT_EQ(store->count(), 2U);
  EXPECT_EQ(contentOf(folder.file("device/first-id")), "2\n");

  // A second program removed the recording already: that counts as deleted.
  std::filesystem::remove(folder.file("b"));
  EXPECT_EQ(read(*store, 0, 0, 2), std::string(2, '\0'));
  EXPECT_TRUE(store->deleteFirst());

  // The id cannot be kept: nothing is lost.
  std::filesystem::remove_all(folder.file("device"));
  writeFile(folder.file("device"), "in the way");
  EXPECT_FALSE(store->deleteFirst());
  EXPECT_TRUE(std::filesystem::exists(folder.file("c")));
  EXPECT_EQ(store->firstId(), 3U);
}

TEST(FolderStore, RefusesAnIdThatIsNone) {
  const TemporaryFolder folder;
  std::filesystem::create_directory(folder.file("device"));
  for (const char* text : {"", "0", "-1", "7 8", "4294967295"}) {
    writeFile(folder.file("device/first-id"), text);
    const std::string failure = thrownBy([&] { FolderStore::open(folder.path()); });
    EXPECT_NE(failure.find("first-id holds no recording id"), std::string::npos) << text;
  }
}

}  // namespace
}  // namespace kwtsdk::sim
