#include "tools/tour_folder.h"

#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <vector>

#include "sim/samples/sample_store.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::tool {

namespace fs = std::filesystem;

namespace {

fs::path newFolder() {
  const char* const parent = ::getenv("TMPDIR");
  std::string pattern = fs::path(parent != nullptr && *parent != '\0' ? parent : "/tmp") / "kwt-tour-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("The tour's folder " + pattern + " cannot be created (" + std::strerror(errno) +
                             "): set TMPDIR to a folder that you may write.");
  }
  return pattern;
}

fs::path firstFileIn(const fs::path& folder) {
  fs::path first;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file() && (first.empty() || entry.path() < first)) first = entry.path();
  }
  return first;
}

std::vector<char> contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TourFolder::TourFolder() : path_(newFolder()) {
  sim::writeSampleStore(store());
  first_ = firstFileIn(store());
  fs::copy_file(first_, original());
}

void TourFolder::writeScript(const std::string& faults) const {
  const fs::path device = fs::path(store()) / "device";
  fs::create_directories(device);
  std::ofstream file(device / "script");
  file << "# How the simulated recorder's link behaves\nlatency 2ms\ninterval 7.5ms\npackets 6\n" << faults;
  if (!file.flush())
    throw std::runtime_error((device / "script").string() + " cannot be written: free some space.");
}

std::uint64_t TourFolder::storedSize() const {
  return (fs::file_size(original()) + wire::kBlockSize - 1) / wire::kBlockSize * wire::kBlockSize;
}

void TourFolder::writeFirmware() const {
  const Bytes image = sim::firmwareImage(49152, {2, 5, 1});
  std::ofstream file(firmware(), std::ios::binary);
  std::ranges::copy(image, std::ostreambuf_iterator<char>(file));
  if (!file.flush()) throw std::runtime_error(firmware() + " cannot be written: free some space.");
}

bool TourFolder::isFirmwareInstalled() const {
  return contentOf(firmware()) == contentOf(fs::path(store()) / "device" / "firmware.bin");
}

bool TourFolder::isPulledWhole() const {
  std::vector<char> expected = contentOf(original());
  expected.resize(storedSize());
  return contentOf(pulled()) == expected;
}

}  // namespace kwtsdk::tool
