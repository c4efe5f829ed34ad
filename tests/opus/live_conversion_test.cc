#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include <kwtsdk/opus/live_conversion.h>
#include <kwtsdk/opus/recording_meter.h>

#include "platform/posix/files.h"
#include "tests/opus/recordings.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;
using LiveFormat = LiveConversion::Format;

/// The milliseconds that a file plays; 0 when it is damaged.
std::size_t lengthOf(LiveFormat format, const TemporaryFolder& folder, const std::string& file) {
  const std::string content = contentOf(file);
  if (format == LiveFormat::wav)
    return isWav(content, 16000, (content.size() - 44) / 2) ? (content.size() - 44) / 32 : 0;
  if (format == LiveFormat::mp3)
    return (content.size() / 108 - 1) * 36;  // whole frames behind that with the length
  const auto result = convert(file, folder.file("sound"), Format::wav, 0, {});
  return result.damagedPackets == 0 ? result.frames / 48 : 0;
}

TEST(LiveConversion, PlaysAsFarAsItHasGotAndEndsAsTheWholeRecordingConverts) {
  const auto records = liveRecords(150);
  const std::string whole = joined(records), sixty = joined({records.begin(), records.begin() + 60});
  // How much of the first 1200 ms plays before the rest comes, and of 3000 ms then.
  const std::tuple<LiveFormat, std::size_t, std::size_t> formats[]{
      {LiveFormat::oggOpus, 1180, 3000}, {LiveFormat::wav, 1200, 3000}, {LiveFormat::mp3, 1000, 3096}};
  for (const auto& [format, early, late] : formats) {
    const TemporaryFolder folder;
    const std::string packets = folder.file("packets"), out = folder.file("out");
    writeFile(packets, "");
    const internal::Descriptor output(::open(out.c_str(), O_WRONLY | O_CREAT, 0600));
    LiveConversion conversion(packets, output.get(), out, format);
    EXPECT_FALSE(conversion.follow());
    EXPECT_EQ(conversion.written(), 0U);
    writeFile(packets, sixty + records[60].substr(0, 9));
    EXPECT_FALSE(conversion.follow());
    EXPECT_GE(lengthOf(format, folder, out), early);
    writeFile(packets, whole);
    EXPECT_FALSE(conversion.finish());
    EXPECT_EQ(lengthOf(format, folder, out), late);
    EXPECT_EQ(contentOf(out).size(), conversion.written());
    if (format == LiveFormat::oggOpus) continue;
    const Format kind = format == LiveFormat::wav ? Format::wav : Format::mp3;
    ASSERT_EQ(convert(packets, folder.file("converted"), kind, 24, {}).status, 0);
    EXPECT_EQ(contentOf(out), contentOf(folder.file("converted")));
  }
}

TEST(LiveConversion, TellsWhatKeepsItFromGoingOn) {
  const TemporaryFolder folder;
  writeFile(folder.file("packets"), joined(liveRecords(2)));
  auto* const handler = std::signal(SIGPIPE, SIG_IGN);
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  ::close(ends[0]);
  const internal::Descriptor pipe(ends[1]);
  const auto failureOf = [&](const char* packets, int output, std::int32_t rate) {
    LiveConversion conversion(folder.file(packets), output, "it", LiveFormat::mp3, rate);
    conversion.follow();
    return conversion.finish().value_or("");
  };
  EXPECT_NE(failureOf("packets", pipe.get(), 24).find("it cannot be written (Broken pipe)"),
            std::string::npos);
  EXPECT_NE(failureOf("none", pipe.get(), 24).find("No such file"), std::string::npos);
  EXPECT_NE(failureOf("packets", pipe.get(), 25).find("25 kbit/s: use 8, 16"), std::string::npos);
  std::signal(SIGPIPE, handler);
}

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
