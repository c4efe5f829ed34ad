#include <gtest/gtest.h>
#include <kwtsdk/sim/folder_store.h>

#include "sim/samples/sample_store.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::sim {
namespace {

using namespace testing;

TEST(SampleStore, HoldsTheSameThreeRecordingsEachTimeInANewFolder) {
  const TemporaryFolder folder;
  const std::string made = folder.file("new/store"), empty = folder.file("empty");
  std::filesystem::create_directory(empty);
  for (const std::string& path : {made, empty}) writeSampleStore(path);
  for (const std::string& path : {made, made + "/0001-melody.opus", made + "/0001-melody.opus/below"}) {
    EXPECT_THROW(writeSampleStore(path), std::runtime_error) << path;
  }
  const auto store = FolderStore::open(made);
  ASSERT_EQ(store->count(), 3U);
  std::size_t index = 0;
  for (const auto& [name, blocks] :
       {std::pair{"/0001-melody.opus", 3}, {"/0002-chord.opus", 2}, {"/0003-sweep.opus", 5}}) {
    EXPECT_TRUE(contentOf(made + name) == contentOf(empty + name)) << name;
    EXPECT_EQ(store->info(index++).blocks, blocks) << name;
  }
  EXPECT_EQ(store->info(1).created - store->info(0).created, std::chrono::minutes(7));
}

}  // namespace
}  // namespace kwtsdk::sim
