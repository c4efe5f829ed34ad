#include "session/firmware_image.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <utility>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {
namespace {

using namespace session::detail;
using session::Errc;

// Goes through an image packet by packet as the transfer does; whether it comes out at its end.
bool canBeSent(std::uint64_t size, std::int64_t mtu) {
  std::uint64_t at = 0;
  while (at < size) at += packetSize(mtu, size, at, at % 8192);
  return at == size;
}

TEST(FirmwareImage, ATailIsRefusedWhereItsPacketsWouldPassTheEnd) {
  for (const std::int64_t mtu : {0, 20, 220, 243, 509, 4096, 8192, 100000}) {
    for (std::uint64_t size = 1; size < 3 * 8192; size += size % 8192 < 700 || size % 8192 > 8000 ? 1 : 7) {
      const auto failure = checkTail("image", size, mtu);
      ASSERT_EQ(failure.has_value(), !canBeSent(size, mtu)) << size << " at " << mtu;
      if (!failure) continue;
      ASSERT_TRUE(*failure == Errc::imageRefused);
      const std::string& text = failure->text();
      const std::uint64_t padded = std::stoull(text.substr(text.find("padded to ") + 10));
      ASSERT_TRUE(padded > size && canBeSent(padded, mtu)) << text;
    }
  }
}

TEST(FirmwareImage, WhatIsNoneIsRefused) {
  const TemporaryFolder folder;
  const std::string path = folder.file("image");
  const std::string tail(300, 'i');
  const std::string frame = "\xFF\xFB\x90\x64" + std::string(413, 'x');    // 417 bytes: 128 kbit/s, 44100 Hz
  const std::string frameOf2 = "\xFF\xF3\x44\xC4" + std::string(92, 'x');  // 96 bytes: 32 kbit/s, 24000 Hz
  const std::pair<std::string, const char*> cases[]{
      {tail, ""},
      {frame + tail, ""},
      {std::string(304, '\xFF'), ""},
      {frame + frame, "an MP3 file"},
      {frameOf2 + frameOf2, "an MP3 file"},
      {"ID3\x04" + tail, "an MP3 file"},
      {"OggS" + tail, "an Ogg file"},
      {"RIFF" + tail, "a RIFF (WAV) file"},
      {"\177ELF" + tail, "an ELF program"},
      {"\x1F\x8B\x08" + tail, "a gzip archive"},
      {"PK\x03\x04" + tail, "a zip archive"},
      {"", "it has 0 bytes"},
      {"abc", "it has 3 bytes"},
      {std::string(8192 + 40, 'i'),
       "its last 40 bytes are too few for a packet, of its 8232; have it padded to 8280"}};
  for (const auto& [content, reason] : cases) {
    writeFile(path, content);
    const auto image = readImage(path);
    ASSERT_EQ(image.has_value(), std::string(reason).empty()) << reason;
    if (image) {
      EXPECT_EQ(std::string(image->begin(), image->end()), content);
    } else {
      EXPECT_TRUE(image.error() == Errc::imageRefused && image.error().effect() == session::Effect::none);
      EXPECT_NE(image.error().text().find(reason), std::string::npos) << image.error().text();
    }
  }
  std::filesystem::resize_file(path, 1ULL << 32);  // which takes no room on the disk
  EXPECT_TRUE(readImage(path).error() == Errc::imageRefused);
  ::mkfifo(folder.file("pipe").c_str(), 0600);
  for (const std::string& name : {folder.path(), folder.file("pipe"), folder.file("missing"), std::string()})
    EXPECT_TRUE(readImage(name).error() == Errc::fileUnusable) << name;
}

}  // namespace
}  // namespace kwtsdk::testing
