#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <csignal>

#include "platform/opus/sound.h"
#include "tests/opus/recordings.h"
#include "tests/support/thrown_by.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;
namespace fs = std::filesystem;

class Output : public ::testing::Test {
 protected:
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

TEST_F(Output, RefusesWhatItMustNotReplace) {
  fs::create_symlink("in", folder.file("link to input"));
  fs::create_hard_link(folder.file("in"), folder.file("other name"));
  fs::create_symlink("nothing", folder.file("dangling"));
  ::mkfifo(folder.file("pipe").c_str(), 0600);
  const auto names = namesIn(folder.path());
  const std::string input = contentOf(folder.file("in"));
  const std::pair<const char*, const char*> cases[] = {
      {"in", "the recording itself"},         {"link to input", "the recording itself"},
      {"other name", "the recording itself"}, {"dangling", "a symbolic link to nothing"},
      {"pipe", "not a regular file"},         {".", "not a regular file"},
      {"in/below", "Not a directory"},        {"none/out", "No such file or directory"}};
  for (const auto& [name, says] : cases) {
    const auto result = toWav(name);
    EXPECT_EQ(result.status, ConversionResult::kFailed) << name;
    EXPECT_NE(result.text.find(says), std::string::npos) << result.text;
  }
  EXPECT_EQ(convert(folder.file("in"), "", Format::wav, 0, {}).status, ConversionResult::kFailed);
  EXPECT_EQ(namesIn(folder.path()), names);
  EXPECT_EQ(contentOf(folder.file("in")), input);
}

TEST_F(Output, StaysAsItWasWhenTheConversionIsGivenUp) {
  writeFile(folder.file("out"), "old");
  const std::tuple<Format, ConversionProgress, int> cases[]{
      {Format::wav, [](double) { return false; }, ConversionResult::kCancelled},
      {Format::wav, [](double) -> bool { throw std::runtime_error("stop"); }, ConversionResult::kFailed},
      {Format::mp3, {}, ConversionResult::kFailed}};  // such a rate there is not
  for (const auto& [format, progress, status] : cases) {
    EXPECT_EQ(convert(folder.file("in"), folder.file("out"), format, 320, progress).status, status);
    EXPECT_EQ(contentOf(folder.file("out")), "old");
    EXPECT_EQ(namesIn(folder.path()), (Names{"in", "out"}));
  }
}

TEST_F(Output, StaysAsItWasWhenTheDiskIsFull) {
  writeFile(folder.file("out"), "old");
  rlimit unlimited{};
  ::getrlimit(RLIMIT_FSIZE, &unlimited);
  auto* const handler = std::signal(SIGXFSZ, SIG_IGN);
  for (const rlim_t most : {0U, 20U, 44U, 5000U, 60000U}) {
    const rlimit limit{most, unlimited.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    const auto wav = toWav("out");
    const auto mp3 = convert(folder.file("in"), folder.file("out"), Format::mp3, 160, {});
    ::setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_EQ(wav.status, ConversionResult::kFailed) << most;
    EXPECT_NE(wav.text.find("File too large"), std::string::npos) << wav.text;
    EXPECT_EQ(mp3.status, most < 40000 ? ConversionResult::kFailed : ConversionResult::kConverted) << most;
    EXPECT_EQ(contentOf(folder.file("out")) == "old", most < 40000);
    EXPECT_EQ(namesIn(folder.path()), (Names{"in", "out"}));
  }
  std::signal(SIGXFSZ, handler);
}

TEST_F(Output, IsNoWavFileBeyondWhatItsHeaderCanSay) {
  const kwtsdk::internal::InputFile input(folder.file("in"));
  {
    kwtsdk::internal::ConvertedFile file(folder.file("out"), input);
    const auto writer = kwtsdk::internal::openWavWriter(file, 16000, 1, 44 + 2 * 320);
    const std::vector<std::int16_t> packet(320);
    writer->write(packet);
    const std::string failure = thrownBy([&] { writer->write(packet); });
    EXPECT_NE(failure.find("convert to MP3 instead"), std::string::npos) << failure;
  }
  EXPECT_EQ(namesIn(folder.path()), Names{"in"});
}

}  // namespace
}  // namespace kwtsdk::opus
