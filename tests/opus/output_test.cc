#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "platform/opus/converted_file.h"
#include "platform/opus/sound.h"
#include "tests/opus/recordings.h"
#include "tests/support/thrown_by.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;
namespace fs = std::filesystem;

struct Output : ::testing::Test {
  Output() { writeFile(folder.file("in"), joined(liveRecords(100))); }

  ConversionResult toWav(const std::string& name, const ConversionProgress& progress = {}) const {
    return convert(folder.file("in"), folder.file(name), Format::wav, 0, progress);
  }

  const TemporaryFolder folder;
};

TEST_F(Output, ReplacesAFileOrALinksTarget) {
  fs::create_directory(folder.file("d"));
  writeFile(folder.file("d/target"), "old");
  fs::create_symlink("d/target", folder.file("link"));
  EXPECT_EQ(toWav("link").status, 0);
  EXPECT_TRUE(fs::is_symlink(folder.file("link")));
  EXPECT_TRUE(isWav(contentOf(folder.file("d/target")), 16000, 100 * kPacketFrames));
  EXPECT_EQ(namesIn(folder.path()), (Names{"d", "in", "link"}));
  EXPECT_EQ(namesIn(folder.file("d")), Names{"target"});

  const mode_t before = ::umask(027);
  EXPECT_EQ(toWav("new").status, 0);
  ::umask(before);
  EXPECT_EQ(fs::status(folder.file("new")).permissions(), fs::perms(0640));
}

TEST_F(Output, StaysAsItWasWhenTheConversionIsGivenUp) {
  writeFile(folder.file("out"), "old");
  const ConversionProgress none, cancels = [](double) { return false; },
                                 throws = [](double) -> bool { throw std::runtime_error("stop"); };
  // Bit rate, or 0 for WAV; how large a file may become; progress, status and what is told then.
  const std::tuple<int, rlim_t, ConversionProgress, int, const char*> cases[]{
      {0, RLIM_INFINITY, cancels, ConversionResult::kCancelled, "was cancelled"},
      {0, RLIM_INFINITY, throws, ConversionResult::kFailed, "stop"},
      {320, RLIM_INFINITY, none, ConversionResult::kFailed, "no bit rate of 320"},
      {0, 0, none, ConversionResult::kFailed, "File too large"},
      {0, 44, none, ConversionResult::kFailed, "File too large"},
      {0, 60000, none, ConversionResult::kFailed, "File too large"},
      {160, 0, none, ConversionResult::kFailed, "File too large"},
      {160, 5000, none, ConversionResult::kFailed, "File too large"},
      {160, 60000, none, ConversionResult::kConverted, ""}};
  for (const auto& [rate, most, progress, status, says] : cases) {
    const Format format = rate == 0 ? Format::wav : Format::mp3;
    std::optional<FullDisk> full(most);
    const auto result = convert(folder.file("in"), folder.file("out"), format, rate, progress);
    full.reset();
    EXPECT_EQ(result.status, status) << rate << " " << most;
    EXPECT_NE(result.text.find(says), std::string::npos) << result.text;
    EXPECT_EQ(contentOf(folder.file("out")) == "old", status != ConversionResult::kConverted);
    EXPECT_EQ(namesIn(folder.path()), (Names{"in", "out"}));
  }
}

TEST_F(Output, RemovesWhatKilledConversionsLeftAndNothingElse) {
  const auto name = [&](pid_t maker) { return folder.file(".kwtsdk-" + std::to_string(maker) + "-0"); };
  int told[2]{};
  ASSERT_EQ(::pipe(told), 0);
  const pid_t living = ::fork();
  if (living == 0) {  // in the middle of a conversion
    const kwtsdk::internal::InputFile input(folder.file("in"));
    const kwtsdk::internal::ConvertedFile file(folder.file("out"), input);
    ::write(told[1], "", 1);
    for (;;) ::pause();
  }
  char byte = 0;
  ASSERT_EQ(::read(told[0], &byte, 1), 1);
  const pid_t gone = ::fork();
  if (gone == 0) ::_exit(0);
  ::waitpid(gone, nullptr, 0);
  writeFile(name(gone), "left");
  writeFile(name(1), "another process has the number");
  fs::create_symlink("in", folder.file(".kwtsdk-" + std::to_string(gone) + "-1"));
  const Names others{"in", "out", fs::path(name(living)).filename(), fs::path(name(1)).filename(),
                     ".kwtsdk-" + std::to_string(gone) + "-1"};
  EXPECT_EQ(toWav("out").status, 0);
  EXPECT_EQ(namesIn(folder.path()), others);

  fs::last_write_time(name(1), fs::file_time_type::clock::now() - std::chrono::hours(25));
  ::kill(living, SIGKILL);
  ::waitpid(living, nullptr, 0);
  EXPECT_EQ(toWav("out").status, 0);
  EXPECT_EQ(namesIn(folder.path()), (Names{"in", "out", ".kwtsdk-" + std::to_string(gone) + "-1"}));
}

TEST_F(Output, IsNoWavFileBeyondWhatItsHeaderCanSay) {
  const kwtsdk::internal::InputFile input(folder.file("in"));
  {
    kwtsdk::internal::ConvertedFile file(folder.file("out"), input);
    const auto writer = kwtsdk::internal::openWavWriter(file, 16000, 1, "", 44 + 2 * 320);
    const std::vector<std::int16_t> packet(320);
    writer->write(packet);
    const std::string failure = thrownBy([&] { writer->write(packet); });
    EXPECT_NE(failure.find("convert to MP3 instead"), std::string::npos) << failure;
  }
  EXPECT_EQ(namesIn(folder.path()), Names{"in"});
}

}  // namespace
}  // namespace kwtsdk::opus
