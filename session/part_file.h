#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <kwtsdk/session/errc.h>
#include <kwtsdk/session/events.h>
#include <kwtsdk/session/result.h>

#include "session/disk_file.h"
#include "session/folder.h"

namespace kwtsdk::session::detail {

/// The file that a download is written into until all of it is there and has been checked: FILE.part. Beside
/// it FILE.part.id tells of which recording it is. Failures are fileUnusable.
class PartFile {
 public:
  /// Locked against other downloads. What is there is continued if it is of this recording and no longer than
  /// that, otherwise begun anew. `file` must not exist.
  static Result<std::shared_ptr<PartFile>> open(const std::filesystem::path& file,
                                                const RecordingInfo& recording);

  /// The header file that an end between the naming of `file` and its removal has left.
  static void removeLeftHeader(const std::filesystem::path& file);

  /// An empty one is removed with its header file.
  ~PartFile();
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  std::uint64_t size() const { return size_; }
  std::optional<Failure> read(std::uint64_t offset, std::span<std::uint8_t> into);  // exactly that many
  std::optional<Failure> write(std::uint64_t offset, std::span<const std::uint8_t> bytes);
  std::optional<Failure> truncate(std::uint64_t size);  // never makes it longer

  /// Cuts it to the recording's size and gives it its name and, if known, its time. Without a failure all of
  /// that is on the disk. Replaces nothing.
  std::optional<Failure> save();

 private:
  PartFile(Folder folder, const std::filesystem::path& file, const RecordingInfo& recording);

  std::optional<Failure> openLocked();
  std::optional<Failure> refuseExisting() const;
  std::optional<Failure> bind();
  bool isBound() const;
  std::optional<Failure> writeHeader(const std::string& name) const;
  std::string header() const;
  void removeHeader() const;

  const Folder folder_;
  const std::string name_, part_, header_, newHeader_;
  const RecordingInfo recording_;
  std::optional<DiskFile> file_;
  std::uint64_t size_ = 0;
  bool saved_ = false;
};

}  // namespace kwtsdk::session::detail
