#include "tools/conversion_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include <kwtsdk/opus/conversion.h>

namespace kwtsdk::tool {

namespace fs = std::filesystem;

namespace {

constexpr const char* kName = ".kwt-pull";
constexpr const char* kSourceExtension = ".opus";
constexpr std::int32_t kBitRateOfMp3 = 24;  // kbit/s

fs::path workOf(const fs::path& folder) { return folder / kName; }

Failure unusable(const fs::path& path, const std::string& reason) {
  return {ToolError::fileUnusable, "Cannot write " + path.string() + ": " + reason + ".",
          "The recording is safe. Check the folder, its permissions and its free space, then run the same "
          "command again."};
}

Failure unusable(const fs::path& path) { return unusable(path, std::strerror(errno)); }

bool isSameContent(const fs::path& one, const fs::path& other) {
  std::ifstream first(one, std::ios::binary), second(other, std::ios::binary);
  using Bytes = std::istreambuf_iterator<char>;
  return first && second && std::equal(Bytes(first), Bytes(), Bytes(second), Bytes());
}

/// The file, or the folder with its names; with the time of `like` unless that is empty.
void bringToDisk(const fs::path& path, const fs::path& like = {}) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) throw unusable(path);
  struct stat status {};
  if (!like.empty() && ::stat(like.c_str(), &status) == 0) {
    const std::array<struct timespec, 2> times{{{0, UTIME_OMIT}, status.st_mtim}};
    ::futimens(descriptor, times.data());
  }
  const bool isDone = ::fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP;
  const int error = errno;
  ::close(descriptor);
  if (!isDone) throw unusable(path, std::strerror(error));
}

}  // namespace

bool ConversionFolder::isIn(const fs::path& folder) {
  std::error_code ignored;
  return fs::is_directory(workOf(folder), ignored);
}

ConversionFolder::ConversionFolder(const fs::path& folder) : folder_(folder), path_(workOf(folder)) {
  lock();
  removeRests();
}

ConversionFolder::~ConversionFolder() {
  ::rmdir(path_.c_str());
  if (descriptor_ >= 0) ::close(descriptor_);
}

void ConversionFolder::lock() {
  // Whoever had it may have removed it between our opening and locking.
  constexpr int attempts = 10;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (::mkdir(path_.c_str(), 0777) != 0 && errno != EEXIST) throw unusable(path_);
    descriptor_ = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor_ < 0) continue;
    struct stat opened {
    }, named{};
    if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0) break;
    if (::fstat(descriptor_, &opened) == 0 && ::stat(path_.c_str(), &named) == 0 &&
        opened.st_ino == named.st_ino) {
      return;
    }
    ::close(descriptor_);
    descriptor_ = -1;
  }
  if (descriptor_ < 0) throw unusable(path_);
  ::close(descriptor_);
  throw unusable(path_, "another kwt is converting recordings there");
}

/// What was being made when a program was killed.
void ConversionFolder::removeRests() const {
  constexpr std::array<const char*, 3> kept{kSourceExtension, ".part", ".id"};
  std::error_code ignored;
  std::vector<fs::path> rests;
  for (const auto& entry : fs::directory_iterator(path_, ignored)) {
    const std::string extension = entry.path().extension();
    if (std::ranges::find(kept, extension) == kept.end()) rests.push_back(entry.path());
  }
  for (const fs::path& rest : rests) fs::remove(rest, ignored);
}

fs::path ConversionFolder::sourceOf(const fs::path& target) {
  return workOf(target.parent_path()) / (target.filename().string() + kSourceExtension);
}

std::string ConversionFolder::convert(const Environment& environment, const fs::path& source,
                                      const fs::path& target, Form form) const {
  const fs::path made = path_ / target.filename();
  TerminalLine line(*environment.scheduler);
  const auto format = form == Form::wav ? opus::Format::wav : opus::Format::mp3;
  const auto result = opus::convert(source, made, format, kBitRateOfMp3, [&](double fraction) {
    if (line.isDue()) line.show("Converting  " + std::to_string(static_cast<int>(fraction * 100)) + " %");
    return !environment.stop.stop_requested();
  });
  line.clear();
  if (result.status == opus::ConversionResult::kCancelled) {
    throw Failure(ToolError::interrupted, "Interrupted while " + target.string() + " was made.",
                  source.string() + " holds the whole recording; run the same command again to continue.");
  }
  if (result.status != opus::ConversionResult::kConverted) {
    if (!result.source || result.frames == 0) return result.text;
    throw Failure(ToolError::notConverted, result.text,
                  source.string() +
                      " holds the whole recording, and the recorder still has it. If the disk "
                      "is full, free space or raise the limit; then run the same command again "
                      "to continue.");
  }
  publish(made, target, source);
  return "";
}

void ConversionFolder::publish(const fs::path& made, const fs::path& target, const fs::path& source) const {
  std::error_code failure;
  if (!fs::exists(fs::symlink_status(target, failure))) {
    bringToDisk(made, source);
    if (std::rename(made.c_str(), target.c_str()) != 0) throw unusable(target);
    return bringToDisk(shownFolder());
  }
  const bool isSame = isSameContent(made, target);
  fs::remove(made, failure);
  if (isSame) return;
  throw Failure(ToolError::fileUnusable,
                "Cannot save " + target.string() +
                    ": it exists already and is not this recording; it is left "
                    "as it is.",
                "Move it away, or choose another name, then run the command again.");
}

void ConversionFolder::giveOut(const fs::path& source, const fs::path& file) const {
  if (std::rename(source.c_str(), file.c_str()) != 0) throw unusable(file);
  bringToDisk(shownFolder());
}

void ConversionFolder::sweep(const Environment& environment, Form usual) const {
  std::error_code ignored;
  std::vector<fs::path> sources;
  for (const auto& entry : fs::directory_iterator(path_, ignored)) {
    if (entry.path().extension() == kSourceExtension) sources.push_back(entry.path());
  }
  for (const fs::path& source : sources) {
    const fs::path target = folder_ / source.stem();
    if (convert(environment, source, target, formOf(target).value_or(usual)).empty())
      fs::remove(source, ignored);
  }
}

}  // namespace kwtsdk::tool
