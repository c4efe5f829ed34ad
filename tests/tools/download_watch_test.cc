#include "tools/download_watch.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::tool {
namespace {

struct Case {
  const char* name;
  std::size_t onDisk;  // of 200 bytes
  std::function<void(DownloadWatch&, const std::string& path)> happens;
  DownloadEnd end;
  const char* reason = "";
};

void PrintTo(const Case& shown, std::ostream* out) { *out << shown.name; }

class DownloadWatchTest : public ::testing::TestWithParam<Case> {};

// The recorder deletes its copy right after the completion returns: what stops the link must not come later.
TEST_P(DownloadWatchTest, AnythingButAGoodEndStopsTheLinkAtOnce) {
  const testing::TemporaryFolder folder;
  const std::string path = folder.file("f");
  testing::writeFile(path, std::string(GetParam().onDisk, 'x'));
  int stops = 0;
  const auto scheduler = threadScheduler();
  DownloadWatch watch(*scheduler, path, [&stops] { ++stops; });

  watch.onProgress(50, 200);
  GetParam().happens(watch, path);
  EXPECT_EQ(stops, GetParam().end == DownloadEnd::complete ? 0 : 1);
  watch.onLinkLost();  // what comes later changes nothing
  watch.onCompletion(std::nullopt);
  EXPECT_EQ(stops, GetParam().end == DownloadEnd::complete ? 0 : 1);
  const DownloadOutcome outcome = watch.waitForEnd();
  EXPECT_EQ(outcome.end, GetParam().end);
  EXPECT_EQ(outcome.reason, GetParam().reason);
}

const Case kCases[] = {
    {"WholeFile", 200, [](auto& watch, auto&) { watch.onCompletion(std::nullopt); }, DownloadEnd::complete},
    {"WithFiller", 283, [](auto& watch, auto&) { watch.onCompletion(std::nullopt); }, DownloadEnd::complete},
    {"ShortFile", 199, [](auto& watch, auto&) { watch.onCompletion(std::nullopt); }, DownloadEnd::incomplete},
    {"Error", 100, [](auto& watch, auto&) { watch.onCompletion(timeoutError()); }, DownloadEnd::refused},
    {"Stall", 100, [](auto& watch, auto&) { watch.onLogLine("Timeout!"); }, DownloadEnd::stalled},
    {"Interrupt", 100, [](auto& watch, auto&) { watch.onInterrupt(); }, DownloadEnd::interrupted},
    {"FileShortened", 100, [](auto& watch, auto&) { watch.onProgress(101, 200); }, DownloadEnd::unwritable,
     "something else removed or shortened it"},
    {"FullDisk", 100,
     [](auto& watch, auto& path) {
       watch.onLogLine("Cannot write /another: no reason; the recording stays on the device");
       watch.onLogLine("Cannot write " + path + ": No space; the recording stays on the device");
     },
     DownloadEnd::unwritable, "No space"},
};
INSTANTIATE_TEST_SUITE_P(All, DownloadWatchTest, ::testing::ValuesIn(kCases),
                         [](const auto& instance) { return instance.param.name; });

TEST(DownloadWatchDeletionTest, IsReadFromTheLog) {
  const auto scheduler = threadScheduler();
  const auto told = [&](std::string_view line) {
    DownloadWatch watch(*scheduler, "", [] {});
    watch.onLogLine(line);
    watch.onInterrupt();  // ends the wait also when the line says nothing
    return watch.waitForDeletion(std::chrono::seconds(0));
  };
  const auto deleted = told("Delete fileId(7) error:(null)");
  ASSERT_TRUE(deleted);
  EXPECT_EQ(deleted->error, std::nullopt);
  const auto refused = told("Delete fileId(7) error:Error Domain=com.kwt.sdk Code=3 \"in use\"");
  ASSERT_TRUE(refused);
  EXPECT_EQ(refused->error, errorWithInfo(3, "in use"));
  EXPECT_FALSE(told("Something else"));
}

}  // namespace
}  // namespace kwtsdk::tool
