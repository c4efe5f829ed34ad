#include <gtest/gtest.h>

#include "tests/support/temporary_folder.h"
#include "tools/download.h"
#include "tools/live_capture.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::tool {
namespace {

// The recorder deletes its copy right after the completion returns: what disconnects must not come later.
TEST(DownloadWatchTest, AnythingButAGoodEndDisconnectsAtOnce) {
  using Watch = DownloadWatch;
  const auto scheduler = threadScheduler();
  const testing::TemporaryFolder folder;
  const std::string path = folder.file("f");
  const auto completes = [](Watch& watch) { watch.onCompletion(std::nullopt); };
  // What is on disk of 200 bytes, with filler or without; how it ends, and what happens.
  const std::tuple<std::size_t, DownloadEnd, std::function<void(Watch&)>> cases[]{
      {200, DownloadEnd::complete, completes},
      {283, DownloadEnd::complete, completes},
      {199, DownloadEnd::incomplete, completes},
      {100, DownloadEnd::refused, [](Watch& watch) { watch.onCompletion(timeoutError()); }},
      {100, DownloadEnd::stalled, [](Watch& watch) { watch.onLogLine("Timeout!"); }},
      {100, DownloadEnd::interrupted, [](Watch& watch) { watch.onInterrupt(); }},
      {100, DownloadEnd::linkLost,
       [](Watch& watch) { watch.onLogLine("Cannot write /a: x;"), watch.onLinkLost(); }},
      {100, DownloadEnd::unwritable, [](Watch& watch) { watch.onProgress(101, 200); }},
      {100, DownloadEnd::unwritable,
       [&](Watch& watch) { watch.onLogLine("Cannot write " + path + ": x;"); }}};
  for (const auto& [onDisk, end, happens] : cases) {
    SCOPED_TRACE(static_cast<int>(end));
    testing::writeFile(path, std::string(onDisk, 'x'));
    int disconnections = 0;
    DownloadWatch watch(*scheduler, path, [&] { ++disconnections; });
    watch.onProgress(50, 200);
    happens(watch);
    EXPECT_EQ(disconnections, end == DownloadEnd::complete ? 0 : 1);
    watch.onLinkLost();  // what comes later changes nothing
    watch.onCompletion(std::nullopt);
    EXPECT_EQ(disconnections, end == DownloadEnd::complete ? 0 : 1);
    const DownloadOutcome outcome = watch.waitForEnd();
    EXPECT_EQ(outcome.end, end);
    EXPECT_EQ(outcome.reason.empty(), end != DownloadEnd::unwritable);
  }
}

// What no simulated recorder does: end a recording for no reason, and at the moment of an interrupt. After
// that a stop would start a recording.
TEST(CaptureWatchTest, TellsTheRecordersEndAlsoAfterAnother) {
  const auto scheduler = threadScheduler();
  const std::tuple<bool, std::string_view, CaptureEnd, std::optional<CaptureEnd>, bool> cases[]{
      {false, wire::kEnded, CaptureEnd::recorder, CaptureEnd::recorder, true},
      {true, wire::kStopped, CaptureEnd::interrupted, std::nullopt, true},
      {true, wire::kEndedByKey, CaptureEnd::interrupted, CaptureEnd::key, false}};
  for (const auto& [isInterrupted, notification, end, endOfRecorder, isStopped] : cases) {
    CaptureWatch watch(*scheduler);
    if (isInterrupted) watch.onInterrupt();
    watch.onNotification(notification);
    EXPECT_EQ(watch.waitForEnd(Duration(0)), end) << notification;
    EXPECT_EQ(watch.endOfRecorder(), endOfRecorder) << notification;
    EXPECT_EQ(watch.waitForStop(Duration(0)).has_value(), isStopped) << notification;
  }
}

}  // namespace
}  // namespace kwtsdk::tool
