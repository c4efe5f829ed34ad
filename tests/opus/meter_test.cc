#include <gtest/gtest.h>

#include <kwtsdk/opus/recording_meter.h>

#include "tests/opus/recordings.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;
using std::chrono::milliseconds;

TEST(RecordingMeter, FollowsAGrowingFile) {
  const TemporaryFolder folder;
  const std::string path = folder.file("live"), whole = joined(liveRecords(50));
  RecordingMeter meter(path);
  EXPECT_FALSE(meter.read().peak);
  const std::size_t firstTen = joined(liveRecords(10)).size();
  const std::tuple<std::size_t, int, bool> steps[]{{1, 0, false},
                                                   {firstTen, 200, true},
                                                   {firstTen, 200, false},
                                                   {firstTen + 1, 200, false},
                                                   {firstTen + 20, 200, false},
                                                   {whole.size() - 1, 980, true},
                                                   {whole.size(), 1000, true}};
  for (const auto& [bytes, recorded, isNew] : steps) {
    writeFile(path, whole.substr(0, bytes));
    const auto reading = meter.read();
    EXPECT_EQ(reading.recorded, milliseconds(recorded)) << bytes;
    EXPECT_EQ(reading.bytes, bytes);
    EXPECT_EQ(reading.peak.has_value(), isNew) << bytes;
    EXPECT_NEAR(reading.peak.value_or(-9), -9, 6);
  }
}

TEST(RecordingMeter, GoesOnBehindDamage) {
  const TemporaryFolder folder;
  const std::string record = joined(liveRecords(1));
  RecordingMeter meter(folder.file("live"));
  writeFile(folder.file("live"), record + record + "junk");
  EXPECT_EQ(meter.read().recorded, milliseconds(40));
  writeFile(folder.file("live"), record + record + "junk" + record + record);
  EXPECT_EQ(meter.read().recorded, milliseconds(100));  // with one concealed
  EXPECT_EQ(RecordingMeter(folder.path()).read().bytes, 0U);
}

}  // namespace
}  // namespace kwtsdk::opus
