#include "sim/samples/sample_store.h"

#include <fcntl.h>
#include <opusenc.h>
#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

namespace kwtsdk::sim {

namespace fs = std::filesystem;

namespace {

struct Release {
  void operator()(OggOpusComments* comments) const { ope_comments_destroy(comments); }
  void operator()(OggOpusEnc* encoder) const { ope_encoder_destroy(encoder); }
};

void require(int result, const std::filesystem::path& path) {
  if (result == OPE_OK) return;
  throw std::runtime_error(path.string() + " cannot be written (" + ope_strerror(result) +
                           "): check the folder's permissions and free space");
}

struct Sample {
  const char* name;
  Samples (*sound)();
  std::time_t recorded;
};

constexpr std::time_t kFirstRecorded = 1715938200;  // 17 May 2024, 09:30 UTC
constexpr std::array<Sample, 3> kSamples{{{"0001-melody.opus", melody, kFirstRecorded},
                                          {"0002-chord.opus", chord, kFirstRecorded + 7 * 60},
                                          {"0003-sweep.opus", sweep, kFirstRecorded + 26 * 60}}};

void makeFolder(const fs::path& folder) {
  std::error_code failure;
  fs::create_directories(folder, failure);
  if (!failure && fs::is_empty(folder, failure) && !failure) return;
  if (failure) {
    throw std::runtime_error("the sample folder " + folder.string() + " cannot be created (" +
                             failure.message() + "): name a folder that you may write");
  }
  throw std::runtime_error("the sample folder " + folder.string() + " is not empty: name a new one");
}

void setTime(const fs::path& path, std::time_t instant) {
  const timespec times[2] = {{instant, 0}, {instant, 0}};
  if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) {
    throw std::runtime_error("the time of " + path.string() + " cannot be set: use another file system");
  }
}

}  // namespace

void writeOpusFile(const std::filesystem::path& path, const Samples& samples, int serialNumber) {
  constexpr int channels = 1, family = 0, bitRate = 64000, constant = 0;
  const std::unique_ptr<OggOpusComments, Release> comments(ope_comments_create());
  int result = OPE_OK;
  const std::unique_ptr<OggOpusEnc, Release> encoder(
      ope_encoder_create_file(path.c_str(), comments.get(), kSampleRate, channels, family, &result));
  require(result, path);
  require(ope_encoder_ctl(encoder.get(), OPE_SET_SERIALNO(serialNumber)), path);
  require(ope_encoder_ctl(encoder.get(), OPUS_SET_BITRATE(bitRate)), path);
  require(ope_encoder_ctl(encoder.get(), OPUS_SET_VBR(constant)), path);
  require(ope_encoder_write(encoder.get(), samples.data(), static_cast<int>(samples.size())), path);
  require(ope_encoder_drain(encoder.get()), path);
}

void writeSampleStore(const fs::path& folder) {
  const bool isNew = !fs::exists(folder);
  makeFolder(folder);
  try {
    int serialNumber = 1;
    for (const Sample& sample : kSamples) {
      writeOpusFile(folder / sample.name, sample.sound(), serialNumber++);
      setTime(folder / sample.name, sample.recorded);
    }
  } catch (...) {
    std::error_code ignored;
    for (const Sample& sample : kSamples) fs::remove(folder / sample.name, ignored);
    if (isNew) fs::remove(folder, ignored);
    throw;
  }
}

Bytes firmwareImage(std::size_t size, std::array<std::uint8_t, 3> version) {
  if (size <= version.size()) throw std::invalid_argument("a firmware image has at least 4 bytes");
  Bytes image(size);
  std::mt19937 random(20240517);
  std::ranges::generate(image, [&random] { return static_cast<std::uint8_t>(random() >> 24); });
  std::ranges::copy(version, image.end() - 4);
  return image;
}

}  // namespace kwtsdk::sim
