#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <kwtsdk/opus/opus_file_converter.h>

#include "platform/opus/converted_file.h"
#include "platform/opus/sound.h"
#include "platform/posix/platform_defaults.h"
#include "tests/opus/recordings.h"
#include "tests/support/fake_peripheral.h"
#include "tests/support/thrown_by.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;
using namespace std::string_literals;

TEST(Conversion, CarriesTitleAndTimeOverButNotThroughTheFacade) {
  const TemporaryFolder folder;
  auto pages = pagesOf(oggOpus(50));
  pages[1] = changed(pages[1], [](std::string& page) {
    const std::string tags = "OpusTags\1\0\0\0x\2\0\0\0\3\0\0\0a=b\13\0\0\0TiTLE=L\xc3\xa4rm"s;
    page = page.substr(0, 26) + '\1' + static_cast<char>(tags.size()) + tags;
  });
  const std::string in = folder.file("in"), wav = folder.file("wav"), mp3 = folder.file("mp3");
  writeFile(in, joined(pages));
  const std::filesystem::file_time_type made =
      std::filesystem::last_write_time(in) - std::chrono::hours(1000);
  std::filesystem::last_write_time(in, made);
  ASSERT_EQ(convert(in, wav, Format::wav, 0, {}).status, 0);
  ASSERT_EQ(convert(in, mp3, Format::mp3, 24, {}).status, 0);
  EXPECT_TRUE(contentOf(wav).ends_with("LIST\x12\0\0\0INFOINAM\6\0\0\0L\xc3\xa4rm\0"s));
  EXPECT_EQ(number(contentOf(wav), 4, 4), contentOf(wav).size() - 8);
  EXPECT_TRUE(contentOf(mp3).starts_with("ID3\4\0\0\0\0\0\x10TIT2\0\0\0\6\0\0\3L\xc3\xa4rm\xff\xf3"s));
  EXPECT_TRUE(std::filesystem::last_write_time(wav) == made && std::filesystem::last_write_time(mp3) == made);
  opusFileConverter(nullptr)->opus2wav(in.c_str(), wav.c_str());
  EXPECT_TRUE(isWav(contentOf(wav), 48000, 3 * 50 * kPacketFrames));
}

TEST(Conversion, SaysWhatItFoundInsteadOfWhatItNeeds) {
  const TemporaryFolder folder;
  const auto expectRefusal = [](const ConversionResult& result, const char* says) {
    EXPECT_EQ(result.status, ConversionResult::kFailed);
    EXPECT_NE(result.text.find(says), std::string::npos) << result.text;
  };
  const std::pair<std::string, const char*> contents[]{
      {"", "is empty"},
      {"RIFF\x10\0\0\0WAVEfmt "s, "is RIFF/WAVE audio"},
      {"ID3\4", "is MP3 audio"},
      {"OggS\0\2"s, "is an Ogg file without Opus sound"},
      {"\x89PNG\r\n\x1a\n\0"s, "begins with the bytes 89 50 4e 47 0d 0a 1a 0a:"},
      {"P", "begins with the bytes 50:"},
      {kMark + "\4\0ab"s, "holds no sound"}};
  for (const auto& [content, says] : contents) expectRefusal(wavOf(folder, content), says);

  const std::string recording = joined(liveRecords(5));
  writeFile(folder.file("in"), recording);
  std::filesystem::create_symlink("in", folder.file("link"));
  std::filesystem::create_hard_link(folder.file("in"), folder.file("other"));
  std::filesystem::create_symlink("nothing", folder.file("dangling"));
  ::mkfifo(folder.file("pipe").c_str(), 0600);
  const auto names = namesIn(folder.path());
  const std::tuple<const char*, const char*, const char*> paths[]{
      {".", "out", "is a folder"},
      {"none", "out", "No such file"},
      {"pipe", "out", "not a regular file"},
      {"in", "in", "the recording itself"},
      {"in", "link", "the recording itself"},
      {"in", "other", "the recording itself"},
      {"in", "dangling", "a symbolic link to nothing"},
      {"in", "pipe", "not a regular file"},
      {"in", ".", "not a regular file"},
      {"in", "in/below", "Not a directory"},
      {"in", "none/out", "No such file or directory"}};
  for (const auto& [in, out, says] : paths)
    expectRefusal(convert(folder.file(in), folder.file(out), Format::wav, 0, {}), says);
  expectRefusal(convert(folder.file("in"), "", Format::wav, 0, {}), "");
  EXPECT_TRUE(namesIn(folder.path()) == names && contentOf(folder.file("in")) == recording);
}

TEST(Converter, LogsFailuresAndDamageInOneLineAndIsThePlatformsOnceInstalled) {
  const TemporaryFolder folder;
  const auto log = std::make_shared<LineLog>();
  const auto converter = opusFileConverter(log);
  writeFile(folder.file("in"), joined(liveRecords(5)) + "junk");
  const std::string in = folder.file("in"), out = folder.file("out");
  EXPECT_EQ(converter->opus2wav(in.c_str(), out.c_str()), 0);
  EXPECT_EQ(converter->opus2mp3(in.c_str(), out.c_str(), 24), 0);
  EXPECT_EQ(converter->opus2mp3(in.c_str(), out.c_str(), 25), -1);
  EXPECT_EQ(converter->opus2wav(nullptr, out.c_str()), -1);
  EXPECT_EQ(converter->opus2mp3(in.c_str(), nullptr, 24), -1);
  EXPECT_EQ(opusFileConverter(nullptr)->opus2wav("", ""), -1);
  const auto lines = log->lines();
  ASSERT_EQ(lines.size(), 5U);
  EXPECT_NE(lines[0].find("left out: 1"), std::string::npos);
  EXPECT_NE(lines[2].find("25 kbit/s: use 8, 16, 24"), std::string::npos);
  const auto found = internal::withDefaults({nullptr, nullptr, nullptr, log}).opusConverter;
#ifdef KWTSDK_OPUS_IS_INSTALLED
  EXPECT_EQ(found->opus2wav(in.c_str(), out.c_str()), 0);
  EXPECT_TRUE(isWav(contentOf(out), 16000, 5 * kPacketFrames));
#else
  EXPECT_EQ(found->opus2mp3(in.c_str(), out.c_str(), 24), -1);
  EXPECT_NE(log->lines().at(5).find("link kwtsdk::opus"), std::string::npos);
#endif
}

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
