#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include <kwtsdk/session/errc.h>
#include <kwtsdk/session/result.h>

#include "platform/posix/files.h"
#include "session/disk_file.h"

namespace kwtsdk::session::detail {

/// The folder that a file is in, held open: a relative path means the same one when the host has changed its
/// current folder meanwhile. Failures are fileUnusable.
class Folder {
 public:
  static Result<Folder> of(const std::filesystem::path& file);

  /// `flags` for open(2); links are not followed.
  Result<DiskFile> open(const std::string& name, int flags) const;

  /// Of whatever has that name, also of a link; none: nothing has, or it cannot be told.
  std::optional<struct stat> status(const std::string& name) const;

  /// On the disk too, name and content, or nothing is replaced.
  std::optional<Failure> replace(const std::string& name, const std::string& by) const;

  /// Fails when the new name is there already.
  std::optional<Failure> rename(const std::string& from, const std::string& to) const;
  void remove(const std::string& name) const;

  /// Names are on the disk.
  std::optional<Failure> sync() const;

  std::filesystem::path shown(const std::string& name) const { return path_ / name; }

 private:
  Folder(internal::Descriptor descriptor, std::filesystem::path path)
      : descriptor_(std::move(descriptor)), path_(std::move(path)) {}

  internal::Descriptor descriptor_;
  std::filesystem::path path_;  // as given; empty: the current one
};

}  // namespace kwtsdk::session::detail
