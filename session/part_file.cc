#include "session/part_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <utility>

#include <kwtsdk/bytes.h>

#include "session/creation_time.h"

namespace kwtsdk::session::detail {

namespace fs = std::filesystem;

Result<std::shared_ptr<PartFile>> PartFile::open(const fs::path& file, const RecordingInfo& recording) {
  auto folder = Folder::of(file);
  if (!folder) return folder.error();
  const std::shared_ptr<PartFile> part(new PartFile(std::move(folder).value(), file, recording));
  if (auto failure = part->openLocked()) return *failure;
  if (auto failure = part->bind()) return *failure;
  return part;
}

PartFile::PartFile(Folder folder, const fs::path& file, const RecordingInfo& recording)
    : folder_(std::move(folder)),
      name_(file.filename().string()),
      part_(name_ + ".part"),
      header_(part_ + ".id"),
      newHeader_(header_ + ".new"),
      recording_(recording) {}

void PartFile::removeLeftHeader(const fs::path& file) {
  const auto folder = Folder::of(file);
  const std::string part = file.filename().string() + ".part";
  if (folder && !folder->status(part)) folder->remove(part + ".id");
}

PartFile::~PartFile() {
  if (!file_ || saved_ || size_ > 0) return;
  const auto named = folder_.status(part_);
  if (!named || !file_->is(*named)) return;
  removeHeader();  // first: once the file is gone, the header may be another download's
  folder_.remove(part_);
}

std::optional<Failure> PartFile::refuseExisting() const {
  const auto found = folder_.status(name_);
  if (!found) return std::nullopt;
  const bool isFolder = S_ISDIR(found->st_mode);
  return fileFailure("save", folder_.shown(name_),
                     std::string(isFolder ? "it is a folder" : "it exists already"));
}

std::optional<Failure> PartFile::openLocked() {
  // Whoever had the lock may have saved or removed the file between our opening and locking it.
  constexpr int attempts = 10;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (auto failure = refuseExisting()) return failure;
    auto opened = folder_.open(part_, O_RDWR | O_CREAT);
    if (!opened) return opened.error();
    DiskFile file = std::move(opened).value();
    const auto locked = file.lock();
    if (!locked) return locked.error();
    if (!*locked) break;
    const auto named = folder_.status(part_);
    if (!named || !file.is(*named)) continue;
    const auto size = file.size();
    if (!size) return size.error();
    size_ = *size;
    file_ = std::move(file);
    return refuseExisting();
  }
  return fileFailure("write", folder_.shown(part_), std::string("another download writes it"));
}

// At no moment bytes stand beside the header of another recording, nor without one, wherever this is cut off.
// What is there goes only when the new header is on the disk: a full disk costs nothing.
std::optional<Failure> PartFile::bind() {
  if (isBound()) return size_ > recording_.bytes ? truncate(0) : std::nullopt;
  auto failure = writeHeader(newHeader_);
  if (!failure && size_ > 0) failure = truncate(0);
  if (!failure) failure = file_->sync();
  if (!failure) failure = folder_.replace(header_, newHeader_);
  if (failure) folder_.remove(newHeader_);
  return failure;
}

bool PartFile::isBound() const {
  const std::string expected = header();
  const auto file = folder_.open(header_, O_RDONLY);
  if (!file || file->size().value_or(0) != expected.size()) return false;
  Bytes found(expected.size());
  return !file->read(0, found) && std::ranges::equal(found, expected, {}, {}, [](char letter) {
    return static_cast<std::uint8_t>(letter);
  });
}

std::optional<Failure> PartFile::writeHeader(const std::string& name) const {
  folder_.remove(name);
  auto opened = folder_.open(name, O_WRONLY | O_CREAT | O_EXCL);
  if (!opened) return opened.error();
  DiskFile file = std::move(opened).value();
  const std::string text = header();
  auto failure = file.write(0, Bytes(text.begin(), text.end())).second;
  if (!failure) failure = file.sync();
  if (!failure) failure = file.close();
  return failure;
}

// With the wall clock's reading, as the recorder has it: the instant depends on where the host's clock is
// set.
std::string PartFile::header() const {
  std::array<char, 64> created{"unknown"};
  if (recording_.created) {
    const std::tm fields = wallClock(*recording_.created);
    std::strftime(created.data(), created.size(), "%Y-%m-%d %H:%M:%S", &fields);
  }
  return "Part of a recording\nid " + std::to_string(recording_.id) + "\nbytes " +
         std::to_string(recording_.bytes) + "\ncreated " + created.data() + "\n";
}

void PartFile::removeHeader() const {
  folder_.remove(header_);
  folder_.remove(newHeader_);
}

std::optional<Failure> PartFile::read(std::uint64_t offset, std::span<std::uint8_t> into) {
  return file_->read(offset, into);
}

std::optional<Failure> PartFile::write(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  auto [written, failure] = file_->write(offset, bytes);
  if (written > 0) size_ = std::max(size_, offset + written);
  return std::move(failure);
}

std::optional<Failure> PartFile::truncate(std::uint64_t size) {
  if (size >= size_) return std::nullopt;
  if (auto failure = file_->truncate(size)) return failure;
  size_ = size;
  return std::nullopt;
}

std::optional<Failure> PartFile::save() {
  if (auto failure = truncate(recording_.bytes)) return failure;
  if (recording_.created) {
    const auto seconds = static_cast<std::time_t>(recording_.created->time_since_epoch().count());
    const std::array<struct timespec, 2> times{{{0, UTIME_OMIT}, {seconds, 0}}};
    ::futimens(file_->descriptor(), times.data());  // where it cannot be, the recording still is to be saved
  }
  if (auto failure = file_->sync()) return failure;
  if (auto failure = folder_.rename(part_, name_)) return failure;
  saved_ = true;
  removeHeader();
  if (auto failure = folder_.sync()) return failure;
  return file_->close();
}

}  // namespace kwtsdk::session::detail
