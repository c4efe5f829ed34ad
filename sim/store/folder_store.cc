#include <kwtsdk/sim/folder_store.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "sim/model/wire.h"
#include "sim/store/device_folder.h"

namespace kwtsdk::sim {

namespace fs = std::filesystem;

namespace {

std::chrono::local_seconds localTime(std::time_t instant) {
  std::tm fields{};
  ::localtime_r(&instant, &fields);
  const std::chrono::sys_seconds shown{std::chrono::seconds(::timegm(&fields))};
  return std::chrono::local_seconds{shown.time_since_epoch()};
}

/// Whether the file begins as every Ogg Opus file does: an Ogg page whose packet is the identification
/// header. False also for a file that cannot be read.
bool isOggOpusFile(const fs::path& path) {
  constexpr std::size_t pageHeaderSize = 27, segmentCountAt = 26;
  constexpr std::string_view capture = "OggS", identification = "OpusHead";
  std::array<char, pageHeaderSize + 255 + identification.size()> page{};
  std::ifstream file(path, std::ios::binary);
  file.read(page.data(), page.size());

  const std::string_view head(page.data(), static_cast<std::size_t>(file.gcount()));
  if (head.size() < pageHeaderSize || !head.starts_with(capture)) return false;
  const auto segments = static_cast<unsigned char>(head[segmentCountAt]);
  return head.size() >= pageHeaderSize + segments &&
         head.substr(pageHeaderSize + segments).starts_with(identification);
}

bool isRecording(const fs::directory_entry& entry) {
  std::error_code ignored;
  return entry.symlink_status(ignored).type() == fs::file_type::regular &&
         !entry.path().filename().string().starts_with('.') && isOggOpusFile(entry.path());
}

RecordingInfo infoOf(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    throw std::runtime_error(path.string() + " cannot be examined: check its permissions");
  }
  const auto blocks = wire::blocksOf(static_cast<std::uint64_t>(status.st_size));
  if (!blocks) {
    throw std::runtime_error(path.string() +
                             " is larger than a recording can be (2147450880 bytes): move it elsewhere");
  }
  return {*blocks, localTime(status.st_mtime), 0};
}

std::vector<fs::path> recordingsIn(const fs::path& folder) {
  std::error_code failure;
  std::vector<fs::path> paths;
  for (fs::directory_iterator entry(folder, failure), end; !failure && entry != end;
       entry.increment(failure)) {
    if (isRecording(*entry)) paths.push_back(entry->path());
  }
  if (failure) {
    throw std::runtime_error("the recorder's folder " + folder.string() + " cannot be read (" +
                             failure.message() + "): name an existing folder that you may read");
  }
  std::ranges::sort(paths);
  return paths;
}

}  // namespace

std::shared_ptr<FolderStore> FolderStore::open(const fs::path& folder) {
  return std::shared_ptr<FolderStore>(new FolderStore(folder));
}

FolderStore::FolderStore(fs::path folder) : folder_(std::move(folder)) {
  const auto paths = recordingsIn(folder_);
  if (paths.size() > kMaximumCount) {
    throw std::runtime_error(folder_.string() + " holds more recordings than a recorder can (" +
                             std::to_string(kMaximumCount) + "): move some elsewhere");
  }
  firstId_ = DeviceFolder(folder_).readFirstId();
  for (const auto& path : paths) recordings_.push_back({path, infoOf(path)});
}

RecordingInfo FolderStore::info(std::size_t index) const { return recordings_.at(index).info; }

void FolderStore::read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const {
  std::ranges::fill(into, std::uint8_t{0});
  std::ifstream file(recordings_.at(index).path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(offset));
  file.read(reinterpret_cast<char*>(into.data()), static_cast<std::streamsize>(into.size()));
}

bool FolderStore::deleteFirst() {
  if (recordings_.empty()) return false;
  // The id first: when it cannot be kept, no recording is lost.
  const DeviceFolder device(folder_);
  const std::uint32_t next = wire::idAfter(firstId_);
  if (!device.writeFirstId(next)) return false;
  std::error_code failure;
  fs::remove(recordings_.front().path, failure);
  if (failure) {
    device.writeFirstId(firstId_);
    return false;
  }
  firstId_ = next;
  recordings_.erase(recordings_.begin());
  return true;
}

}  // namespace kwtsdk::sim
