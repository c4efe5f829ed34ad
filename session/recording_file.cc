#include "session/recording_file.h"

#include <fcntl.h>

#include <utility>

namespace kwtsdk::session::detail {

namespace fs = std::filesystem;

Result<std::shared_ptr<RecordingFile>> RecordingFile::create(const fs::path& file) {
  const auto unusable = [&file](const char* reason) {
    return fileFailure("record into", file, std::string(reason));
  };
  auto folder = Folder::of(file);
  if (!folder) return folder.error();
  const std::string name = file.filename().string();
  const bool isNew = !folder->status(name);
  auto opened = folder->open(name, O_WRONLY | O_CREAT | (isNew ? O_EXCL : 0));
  if (!opened) return opened.error();
  DiskFile empty = std::move(opened).value();
  const auto locked = empty.lock();
  if (!locked) return locked.error();
  if (!*locked) return unusable("another recording is written into it");
  const auto size = empty.size();
  if (!size) return size.error();
  if (*size > 0) return unusable("it exists already and is not empty");
  return std::shared_ptr<RecordingFile>(
      new RecordingFile(std::move(folder).value(), name, std::move(empty), isNew));
}

RecordingFile::RecordingFile(Folder folder, std::string name, DiskFile file, bool isNew)
    : folder_(std::move(folder)), name_(std::move(name)), file_(std::move(file)), isNew_(isNew) {}

RecordingFile::~RecordingFile() {
  if (!isNew_ || size_ > 0 || !file_.isOpen()) return;
  const auto named = folder_.status(name_);
  if (named && file_.is(*named)) folder_.remove(name_);
}

std::optional<Failure> RecordingFile::append(std::span<const std::uint8_t> bytes) {
  if (failure_) return failure_;
  auto [written, failure] = file_.write(size_, bytes);
  size_ += written;
  failure_ = std::move(failure);
  return failure_;
}

std::optional<Failure> RecordingFile::close() {
  if (!file_.isOpen() || size_ == 0) return std::nullopt;  // an empty one is the destructor's
  auto failure = file_.sync();
  if (auto later = folder_.sync(); !failure) failure = std::move(later);
  if (auto later = file_.close(); !failure) failure = std::move(later);
  return failure;
}

}  // namespace kwtsdk::session::detail
