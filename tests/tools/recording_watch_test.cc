#include "tools/live_capture.h"

#include <gtest/gtest.h>

namespace kwtsdk::tool {
namespace {

const Bytes kAudio{0x50, 0x01, 0x01, 0x00, 0x08}, kStopped{0x00, 0x80, 0x01, 0x00, 0x00};

Bytes end(std::uint8_t reason) { return {0x08, 0x01, 0x00, reason, 0x00}; }
Bytes status(std::uint8_t result) { return {0x12, 0x80, 0x04, 0x00, 0x00, result, 0x54, 0x00}; }

struct CaptureCase {
  const char* name;
  std::function<void(CaptureWatch&)> happens;
  std::optional<CaptureEnd> end, endOfRecorder;
  bool stopped;
  std::optional<CaptureWatch::Refusal> refusal = std::nullopt;
};

using enum CaptureEnd;
using Refusal = CaptureWatch::Refusal;
const auto kNone = std::nullopt;
const CaptureCase kCaptures[] = {
    {"audio", [](auto&) {}, kNone, kNone, false},
    {"started", [](auto& watch) { watch.onNotification(status(0)); }, kNone, kNone, false},
    {"in a call", [](auto& watch) { watch.onNotification(status(0x10)); }, kNone, kNone, false,
     Refusal::inCall},
    {"in no call", [](auto& watch) { watch.onNotification(status(0x11)); }, kNone, kNone, false,
     Refusal::notInCall},
    {"key", [](auto& watch) { watch.onNotification(end(0x11)); }, key, key, false},
    {"call", [](auto& watch) { watch.onNotification(end(0x21)); }, call, call, false},
    {"unasked", [](auto& watch) { watch.onNotification(end(0x01)); }, recorder, recorder, true},
    {"link lost", [](auto& watch) { watch.onLinkLost(); }, linkLost, kNone, true},
    {"interrupt", [](auto& watch) { watch.onInterrupt(); }, interrupted, kNone, false},
    {"answer to stop", [](auto& watch) { watch.onInterrupt(), watch.onNotification(kStopped); }, interrupted,
     kNone, true},
    // After which a stop would start a recording.
    {"key after interrupt", [](auto& watch) { watch.onInterrupt(), watch.onNotification(end(0x11)); },
     interrupted, key, false},
};

TEST(CaptureWatchTest, TellsTheFirstEndAndWhetherTheRecorderEnded) {
  const auto scheduler = threadScheduler();
  for (const CaptureCase& test : kCaptures) {
    SCOPED_TRACE(test.name);
    CaptureWatch watch(*scheduler);
    watch.onNotification(kAudio);
    test.happens(watch);
    EXPECT_EQ(watch.waitForEnd(Duration(0)), test.end);
    EXPECT_EQ(watch.endOfRecorder(), test.endOfRecorder);
    EXPECT_EQ(watch.waitForStop(Duration(0)).has_value(), test.stopped);
    EXPECT_EQ(watch.refusal(), test.refusal);
  }
}

}  // namespace
}  // namespace kwtsdk::tool
