#include "tools/download.h"

#include <gtest/gtest.h>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::tool {
namespace {

struct DownloadCase {
  const char* name;
  std::size_t onDisk;  // of 200 bytes
  std::function<void(DownloadWatch&, const std::string& path)> happens;
  DownloadEnd end;
  const char* reason = "";
};

const DownloadCase kDownloads[] = {
    {"whole file", 200, [](auto& watch, auto&) { watch.onCompletion(std::nullopt); }, DownloadEnd::complete},
    {"with filler", 283, [](auto& watch, auto&) { watch.onCompletion(std::nullopt); }, DownloadEnd::complete},
    {"short file", 199, [](auto& watch, auto&) { watch.onCompletion(std::nullopt); },
     DownloadEnd::incomplete},
    {"error", 100, [](auto& watch, auto&) { watch.onCompletion(timeoutError()); }, DownloadEnd::refused},
    {"stall", 100, [](auto& watch, auto&) { watch.onLogLine("Timeout!"); }, DownloadEnd::stalled},
    {"interrupt", 100, [](auto& watch, auto&) { watch.onInterrupt(); }, DownloadEnd::interrupted},
    {"file shortened", 100, [](auto& watch, auto&) { watch.onProgress(101, 200); }, DownloadEnd::unwritable,
     "something else removed or shortened it"},
    {"full disk", 100,
     [](auto& watch, auto& path) {
       watch.onLogLine("Cannot write /another: no reason; the recording stays on the device");
       watch.onLogLine("Cannot write " + path + ": No space; the recording stays on the device");
     },
     DownloadEnd::unwritable, "No space"},
};

// The recorder deletes its copy right after the completion returns: what stops the link must not come later.
TEST(DownloadWatchTest, AnythingButAGoodEndStopsTheLinkAtOnce) {
  const auto scheduler = threadScheduler();
  for (const DownloadCase& test : kDownloads) {
    SCOPED_TRACE(test.name);
    const testing::TemporaryFolder folder;
    const std::string path = folder.file("f");
    testing::writeFile(path, std::string(test.onDisk, 'x'));
    int stops = 0;
    DownloadWatch watch(*scheduler, path, [&stops] { ++stops; });

    watch.onProgress(50, 200);
    test.happens(watch, path);
    EXPECT_EQ(stops, test.end == DownloadEnd::complete ? 0 : 1);
    watch.onLinkLost();  // what comes later changes nothing
    watch.onCompletion(std::nullopt);
    EXPECT_EQ(stops, test.end == DownloadEnd::complete ? 0 : 1);
    const DownloadOutcome outcome = watch.waitForEnd();
    EXPECT_TRUE(outcome.end == test.end && outcome.reason == test.reason) << outcome.reason;
  }
}

TEST(DownloadWatchDeletionTest, IsReadFromTheLog) {
  const auto scheduler = threadScheduler();
  const auto told = [&](std::string_view line) {
    DownloadWatch watch(*scheduler, "", [] {});
    watch.onLogLine(line);
    watch.onInterrupt();  // ends the wait also when the line says nothing
    return watch.waitForDeletion(std::chrono::seconds(0));
  };
  EXPECT_EQ(told("Delete fileId(7) error:(null)").value().error, std::nullopt);
  EXPECT_EQ(told("Delete fileId(7) error:Error Domain=com.kwt.sdk Code=3 \"in use\"").value().error,
            errorWithInfo(3, "in use"));
  EXPECT_FALSE(told("Something else"));
}

}  // namespace
}  // namespace kwtsdk::tool
