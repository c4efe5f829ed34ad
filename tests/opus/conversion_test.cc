#include <gtest/gtest.h>
#include <sys/stat.h>

#include <kwtsdk/opus/opus_file_converter.h>

#include "platform/posix/platform_defaults.h"
#include "tests/opus/recordings.h"
#include "tests/support/fake_peripheral.h"

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

}  // namespace
}  // namespace kwtsdk::opus
