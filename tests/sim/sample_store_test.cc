#include <gtest/gtest.h>
#include <kwtsdk/sim/folder_store.h>

#include "sim/samples/sample_store.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::sim {
namespace {

using namespace std::chrono_literals;
using kwtsdk::testing::contentOf;
using kwtsdk::testing::TemporaryFolder;
using kwtsdk::testing::writeFile;

/// Ogg: the granule position of the last page counts samples at 48 kHz, encoder delay included.
double secondsOf(const std::string& content) {
  const std::size_t lastPage = content.rfind("OggS");
  std::uint64_t samples = 0;
  for (std::size_t i = 8; i > 0; --i)
    samples = samples << 8 | static_cast<std::uint8_t>(content.at(lastPage + 5 + i));
  return static_cast<double>(samples) / 48000;
}

TEST(SampleStore, HoldsTheSameThreeRecordingsEachTime) {
  const TemporaryFolder folder;
  writeSampleStore(folder.file("new/store"));
  std::filesystem::create_directory(folder.file("empty"));
  writeSampleStore(folder.file("empty"));

  const auto store = FolderStore::open(folder.file("new/store"));
  ASSERT_EQ(store->count(), 3U);
  const std::tuple<const char*, double, int> expected[]{
      {"0001-melody.opus", 12, 3}, {"0002-chord.opus", 5, 2}, {"0003-sweep.opus", 20, 5}};
  std::size_t index = 0;
  for (const auto& [name, seconds, blocks] : expected) {
    const std::string content = contentOf(folder.file("new/store/") + name);
    EXPECT_TRUE(content == contentOf(folder.file("empty/") + name)) << name;
    EXPECT_NEAR(secondsOf(content), seconds, 0.05) << name;
    EXPECT_EQ(store->info(index++).blocks, blocks) << name;
  }
  EXPECT_EQ(store->info(1).created - store->info(0).created, 7min);
  EXPECT_EQ(store->info(2).created - store->info(1).created, 19min);
}

TEST(SampleStore, RefusesAFolderThatIsNotNew) {
  const TemporaryFolder folder;
  writeFile(folder.file("mine"), "mine");
  for (const std::string& path : {folder.path(), folder.file("mine"), folder.file("mine/below")}) {
    EXPECT_THROW(writeSampleStore(path), std::runtime_error) << path;
  }
  EXPECT_EQ(contentOf(folder.file("mine")), "mine");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

}  // namespace
}  // namespace kwtsdk::sim
