#include <dirent.h>
#include <kwtsdk/sim/folder_store.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "sim/model/wire.h"
#include "sim/store/device_folder.h"
#include "sim/store/folder_lock.h"

namespace kwtsdk::sim {

namespace fs = std::filesystem;

namespace {

std::chrono::local_seconds localTime(std::time_t instant) {
  std::tm fields{};
  ::localtime_r(&instant, &fields);
  const std::chrono::sys_seconds shown{std::chrono::seconds(::timegm(&fields))};
  return std::chrono::local_seconds{shown.time_since_epoch()};
}

bool isNamedAsOgg(const fs::path& path) { return path.extension() == ".opus" || path.extension() == ".ogg"; }

/// Whether the file begins as every Ogg Opus file does: an Ogg page whose packet is the identification
/// header. Of one that cannot be read only the name is known.
bool isOggOpusFile(const fs::path& path) {
  constexpr std::size_t pageHeaderSize = 27, segmentCountAt = 26;
  constexpr std::string_view capture = "OggS", identification = "OpusHead";
  std::array<char, pageHeaderSize + 255 + identification.size()> page{};
  std::ifstream file(path, std::ios::binary);
  file.read(page.data(), page.size());
  if (file.bad() || !file.is_open()) return isNamedAsOgg(path);

  const std::string_view head(page.data(), static_cast<std::size_t>(file.gcount()));
  if (head.size() < pageHeaderSize || !head.starts_with(capture)) return false;
  const auto segments = static_cast<unsigned char>(head[segmentCountAt]);
  return head.size() >= pageHeaderSize + segments &&
         head.substr(pageHeaderSize + segments).starts_with(identification);
}

bool isRecording(const fs::path& path) {
  std::error_code ignored;
  return fs::symlink_status(path, ignored).type() == fs::file_type::regular &&
         !path.filename().string().starts_with('.') && isOggOpusFile(path);
}

struct stat statusOf(const fs::path& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) return status;
  throw std::runtime_error(path.string() + " cannot be examined: check its permissions");
}

RecordingInfo infoOf(const fs::path& path, const struct stat& status) {
  const auto blocks = wire::blocksOf(static_cast<std::uint64_t>(status.st_size));
  if (!blocks) {
    throw std::runtime_error(path.string() +
                             " is larger than a recording can be (2147450880 bytes): move it elsewhere");
  }
  return {*blocks, localTime(status.st_mtime), 0};
}

/// Not with a directory_iterator, whose steps end the process where there is no memory for them.
std::vector<fs::path> recordingsIn(const fs::path& folder) {
  std::vector<fs::path> paths;
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.c_str()), ::closedir);
  for (const dirent* entry = nullptr; entries && (entry = ::readdir(entries.get())) != nullptr;) {
    fs::path path = folder / static_cast<const char*>(entry->d_name);
    if (isRecording(path)) paths.push_back(std::move(path));
  }
  if (!entries) {
    throw std::runtime_error("the recorder's folder " + folder.string() + " cannot be read (" +
                             std::system_category().message(errno) +
                             "): name an existing folder that you may read");
  }
  std::ranges::sort(paths);
  return paths;
}

/// Its bytes from there on, fewer at its end; throws when the disk does not give them, or it is not as it
/// was.
std::size_t readFrom(const fs::path& path, std::uint64_t size, std::uint64_t offset,
                     std::span<std::uint8_t> into) {
  std::error_code failure;
  const bool isSame = fs::symlink_status(path, failure).type() == fs::file_type::regular &&
                      fs::file_size(path, failure) == size;
  std::ifstream file;
  if (isSame) file.open(path, std::ios::binary);
  file.seekg(static_cast<std::streamoff>(std::min(offset, size)));
  const std::uint64_t expected = std::min<std::uint64_t>(into.size(), size - std::min(offset, size));
  file.read(reinterpret_cast<char*>(into.data()), static_cast<std::streamsize>(expected));
  if (!isSame || static_cast<std::uint64_t>(file.gcount()) != expected) {
    throw std::runtime_error(path.string() + " cannot be read: check its permissions and the disk");
  }
  return static_cast<std::size_t>(expected);
}

}  // namespace

FolderStore::~FolderStore() = default;

std::shared_ptr<FolderStore> FolderStore::open(const fs::path& folder) {
  return std::shared_ptr<FolderStore>(new FolderStore(folder));
}

FolderStore::FolderStore(fs::path folder)
    : folder_(std::move(folder)), lock_(std::make_unique<FolderLock>(folder_)) {
  const auto paths = recordingsIn(folder_);
  if (paths.size() > kMaximumCount) {
    throw std::runtime_error(folder_.string() + " holds more recordings than a recorder can (" +
                             std::to_string(kMaximumCount) + "): move some elsewhere");
  }
  firstId_ = DeviceFolder(folder_).readFirstId();
  for (const auto& path : paths) {
    const struct stat status = statusOf(path);
    recordings_.push_back({path, infoOf(path, status), static_cast<std::uint64_t>(status.st_size)});
    std::array<std::uint8_t, 1> first{};
    try {
      readFrom(path, recordings_.back().size, 0, first);
    } catch (const std::runtime_error& error) {
      warnings_.emplace_back(error.what());
    }
  }
}

RecordingInfo FolderStore::info(std::size_t index) const { return recordings_.at(index).info; }

void FolderStore::read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const {
  const File& recording = recordings_.at(index);
  const std::size_t length = readFrom(recording.path, recording.size, offset, into);
  std::ranges::fill(into.subspan(length), std::uint8_t{0});
}

bool FolderStore::deleteFirst() {
  if (recordings_.empty()) return false;
  // The id first: when it cannot be kept, no recording is lost.
  const DeviceFolder device(folder_);
  const std::uint32_t next = wire::idAfter(firstId_);
  if (!device.writeFirstId(next)) return false;
  std::error_code failure;
  const bool isRemoved = fs::remove(recordings_.front().path, failure);
  if (!isRemoved) {
    device.writeFirstId(firstId_);
    return false;
  }
  firstId_ = next;
  recordings_.erase(recordings_.begin());
  return true;
}

}  // namespace kwtsdk::sim
