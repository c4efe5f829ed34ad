#include "tools/sound_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include <kwtsdk/files.h>

#include "tools/failure.h"
#include "tools/standard_streams.h"

namespace kwtsdk::tool {
namespace {

std::string folderOf(const std::string& file) {
  const auto folder = std::filesystem::path(file).parent_path();
  return folder.empty() ? "." : folder.string();
}

Failure unusableOutput(const std::string& file, const std::string& reason) {
  return {ToolError::fileUnusable, "Cannot record into " + file + ": " + reason + ".",
          "Name another file with -o; a recording never overwrites one."};
}

/// Some file systems, and pipes, know no such call.
bool isSynced(int descriptor) {
  return ::fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP || errno == EROFS;
}

}  // namespace

std::string extensionOf(const std::string& file) {
  std::string extension = std::filesystem::path(file).extension();
  std::ranges::transform(extension, extension.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  return extension;
}

SoundFile::SoundFile(const std::string& file, opus::LiveConversion::Format format)
    : file_(file), name_(file), packets_(std::make_unique<TemporaryFile>(folderOf(file))) {
  open();
  conversion_ = std::make_unique<opus::LiveConversion>(packets(), descriptor_, name_, format);
  follow();
}

SoundFile::SoundFile()
    : name_("Standard output"), packets_(std::make_unique<TemporaryFile>(folderOfTemporaries())) {
  descriptor_ = takeStandardOutput();
  conversion_ = std::make_unique<opus::LiveConversion>(packets(), descriptor_, name_,
                                                       opus::LiveConversion::Format::oggOpus);
  follow();
}

SoundFile::~SoundFile() {
  if (isNew_ && written() == 0) ::unlink(file_.c_str());
  if (descriptor_ >= 0) ::close(descriptor_);
}

void SoundFile::open() {
  constexpr int always = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
  descriptor_ = ::open(file_.c_str(), always | O_EXCL, 0666);
  isNew_ = descriptor_ >= 0;
  if (!isNew_ && errno == EEXIST) descriptor_ = ::open(file_.c_str(), always, 0666);
  struct stat status {};
  if (descriptor_ < 0 || ::fstat(descriptor_, &status) != 0) {
    throw unusableOutput(file_, errno == ELOOP ? "it is a symbolic link" : std::strerror(errno));
  }
  if (!S_ISREG(status.st_mode)) throw unusableOutput(file_, "it is not a regular file");
  if (::flock(descriptor_, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    throw unusableOutput(file_, "another recording is written into it");
  }
  if (status.st_size > 0) throw unusableOutput(file_, "it is not empty");
}

std::optional<std::string> SoundFile::follow() {
  auto failure = conversion_->follow();
  // Everyone has it open then, and nothing stays behind, whatever ends the program.
  if (!packets().empty() && fileSize(packets()) > 0) packets_->removeName();
  return failure;
}

std::optional<std::string> SoundFile::finish() {
  auto failure = conversion_->finish();
  return failure || written() == 0 ? failure : sync();
}

std::optional<std::string> SoundFile::sync() const {
  const auto failed = [this] { return name_ + " cannot be written (" + std::strerror(errno) + ")"; };
  if (!isSynced(descriptor_)) return failed();
  if (file_.empty()) return std::nullopt;
  const int folder = ::open(folderOf(file_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return std::nullopt;  // one that may be used but not read
  const bool isNameSynced = isSynced(folder);
  ::close(folder);
  return isNameSynced ? std::nullopt : std::optional(failed());
}

bool SoundFile::isReaderGone() const {
  pollfd output{descriptor_, POLLOUT, 0};
  return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

}  // namespace kwtsdk::tool
