#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include <kwtsdk/session/errc.h>
#include <kwtsdk/session/result.h>

#include "session/disk_file.h"

namespace kwtsdk::session::detail {

/// A file that is there already under the name of a recording: only looked at, never touched.
class ExistingFile {
 public:
  /// Whether anything has that name, also a link that leads nowhere.
  static bool isThere(const std::filesystem::path& file);

  /// Reads all of it. fileUnusable unless it is a regular file of exactly `bytes` bytes whose Ogg pages all
  /// check, the rest being uniform filler.
  static Result<std::shared_ptr<ExistingFile>> open(const std::filesystem::path& file, std::uint64_t bytes);

  std::uint64_t lastPage() const { return lastPage_; }  // where its last page begins
  std::optional<Failure> read(std::uint64_t offset, std::span<std::uint8_t> into);

 private:
  ExistingFile(DiskFile file, std::uint64_t lastPage) : file_(std::move(file)), lastPage_(lastPage) {}

  DiskFile file_;
  std::uint64_t lastPage_;
};

}  // namespace kwtsdk::session::detail
