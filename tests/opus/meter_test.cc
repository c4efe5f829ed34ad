#include <gtest/gtest.h>

#include <kwtsdk/opus/recording_meter.h>

#include "tests/opus/recordings.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;

TEST(RecordingMeter, FollowsAGrowingFileAndGoesOnBehindDamage) {
  const TemporaryFolder folder;
  const std::string path = folder.file("live"), whole = joined(liveRecords(50)),
                    record = joined(liveRecords(1));
  RecordingMeter meter(path);
  EXPECT_FALSE(meter.read().peak);
  const std::size_t ten = joined(liveRecords(10)).size();
  // What is in the file, how many milliseconds of sound that is, and whether some of it is new.
  const std::tuple<std::string, int, bool> steps[]{
      {whole.substr(0, 1), 0, false},
      {whole.substr(0, ten), 200, true},
      {whole.substr(0, ten), 200, false},
      {whole.substr(0, ten + 1), 200, false},
      {whole.substr(0, whole.size() - 1), 980, true},
      {whole, 1000, true},
      {whole + "junk", 1000, false},
      {whole + "junk" + record + record, 1060, true}};  // one concealed
  for (const auto& [content, recorded, isNew] : steps) {
    writeFile(path, content);
    const auto reading = meter.read();
    EXPECT_EQ(reading.recorded, std::chrono::milliseconds(recorded));
    EXPECT_EQ(reading.bytes, content.size());
    EXPECT_EQ(reading.peak.has_value(), isNew) << recorded;
    EXPECT_NEAR(reading.peak.value_or(-9), -9, 6);
  }
  EXPECT_EQ(RecordingMeter(folder.path()).read().bytes, 0U);
}

}  // namespace
}  // namespace kwtsdk::opus
