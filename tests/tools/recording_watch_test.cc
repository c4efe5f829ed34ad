#include "tools/recording_watch.h"

#include <gtest/gtest.h>

namespace kwtsdk::tool {
namespace {

const Bytes kAudio{0x50, 0x01, 0x01, 0x00, 0x08}, kStopped{0x00, 0x80, 0x01, 0x00, 0x00};

Bytes end(std::uint8_t reason) { return {0x08, 0x01, 0x00, reason, 0x00}; }
Bytes status(std::uint8_t result) { return {0x12, 0x80, 0x04, 0x00, 0x00, result, 0x54, 0x00}; }

struct Case {
  const char* name;
  std::function<void(RecordingWatch&)> happens;
  std::optional<RecordingEnd> end, endOfRecorder;
  bool stopped;
  std::optional<RecordingWatch::Refusal> refusal = std::nullopt;
};

void PrintTo(const Case& shown, std::ostream* out) { *out << shown.name; }

class RecordingWatchTest : public ::testing::TestWithParam<Case> {};

TEST_P(RecordingWatchTest, TellsTheFirstEndAndWhetherTheRecorderEnded) {
  const auto scheduler = threadScheduler();
  RecordingWatch watch(*scheduler);
  watch.onNotification(kAudio);
  GetParam().happens(watch);
  EXPECT_EQ(watch.waitForEnd(Duration(0)), GetParam().end);
  EXPECT_EQ(watch.endOfRecorder(), GetParam().endOfRecorder);
  EXPECT_EQ(watch.waitForStop(Duration(0)).has_value(), GetParam().stopped);
  EXPECT_EQ(watch.refusal(), GetParam().refusal);
}

using enum RecordingEnd;
using Refusal = RecordingWatch::Refusal;
const auto kNone = std::nullopt;
const Case kCases[] = {
    {"Audio", [](auto&) {}, kNone, kNone, false},
    {"Started", [](auto& watch) { watch.onNotification(status(0)); }, kNone, kNone, false},
    {"InCall", [](auto& watch) { watch.onNotification(status(0x10)); }, kNone, kNone, false, Refusal::inCall},
    {"NotInCall", [](auto& watch) { watch.onNotification(status(0x11)); }, kNone, kNone, false,
     Refusal::notInCall},
    {"Key", [](auto& watch) { watch.onNotification(end(0x11)); }, key, key, false},
    {"Call", [](auto& watch) { watch.onNotification(end(0x21)); }, call, call, false},
    {"Unasked", [](auto& watch) { watch.onNotification(end(0x01)); }, recorder, recorder, true},
    {"LinkLost", [](auto& watch) { watch.onLinkLost(); }, linkLost, kNone, true},
    {"Interrupt", [](auto& watch) { watch.onInterrupt(); }, interrupted, kNone, false},
    {"AnswerToStop",
     [](auto& watch) {
       watch.onInterrupt();
       watch.onNotification(kStopped);
     },
     interrupted, kNone, true},
    // After which a stop would start a recording.
    {"KeyAfterInterrupt",
     [](auto& watch) {
       watch.onInterrupt();
       watch.onNotification(end(0x11));
     },
     interrupted, key, false},
};
INSTANTIATE_TEST_SUITE_P(All, RecordingWatchTest, ::testing::ValuesIn(kCases),
                         [](const auto& instance) { return instance.param.name; });

}  // namespace
}  // namespace kwtsdk::tool
