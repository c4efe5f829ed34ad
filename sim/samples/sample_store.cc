#include "sim/samples/sample_store.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <ctime>
#include <stdexcept>
#include <string>

#include "sim/samples/opus_file.h"

namespace kwtsdk::sim {

namespace fs = std::filesystem;

namespace {

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

}  // namespace kwtsdk::sim
