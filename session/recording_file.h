#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <kwtsdk/session/errc.h>
#include <kwtsdk/session/result.h>

#include "session/disk_file.h"
#include "session/folder.h"

namespace kwtsdk::session::detail {

/// The file that a live recording is written into. Failures are fileUnusable.
class RecordingFile {
 public:
  /// A new file, or a regular one that is empty, locked against other recordings.
  static Result<std::shared_ptr<RecordingFile>> create(const std::filesystem::path& file);

  /// Removes the file if this created it and it has stayed empty.
  ~RecordingFile();
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  /// The first failure is the last that is tried: what is there stays a beginning of the recording.
  std::optional<Failure> append(std::span<const std::uint8_t> bytes);
  std::uint64_t size() const { return size_; }

  /// Without a failure all of it is on the disk.
  std::optional<Failure> close();

 private:
  RecordingFile(Folder folder, std::string name, DiskFile file, bool isNew);

  const Folder folder_;
  const std::string name_;
  DiskFile file_;
  const bool isNew_;
  std::uint64_t size_ = 0;
  std::optional<Failure> failure_;
};

}  // namespace kwtsdk::session::detail
