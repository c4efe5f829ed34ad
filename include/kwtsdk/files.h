#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <kwtsdk/export.h>

namespace kwtsdk {

/// A file open for writing. The first write that fails (full disk, closed file) is the last that is tried:
/// what is on disk stays a beginning of what was given, which a later download can continue. Safe on any
/// thread; writing blocks for the disk. Unbuffered: what write accepted is the kernel's, and outlives the
/// process. A pipe whose reader has gone is a failed write; no SIGPIPE ends the host.
class KWTSDK_EXPORT FileHandle {
 public:
  /// Negative: a closed file. `path`: what it was opened as, for sync().
  explicit FileHandle(int descriptor, std::string path = {});
  ~FileHandle();
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;

  /// Writes `size` bytes at the current position; false when that or an earlier write failed or the file is
  /// closed.
  bool write(const void* data, std::size_t size);

  /// Waits until the disk has what was written, and the name in its folder. False when it has not: that
  /// counts as a failed write. What no disk is behind, such as a pipe, has nothing to wait for.
  bool sync();

  /// Never waits: a write that is running goes on to its end, and the file is given back after it.
  void close();
  bool isOpen() const;

  /// Why the first failed write failed; "" while none has.
  std::string failure() const;

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

/// Size in bytes; 0 when the path cannot be examined.
KWTSDK_EXPORT std::int64_t fileSize(const std::string& path);

/// True when something other than a directory exists at the path.
KWTSDK_EXPORT bool fileIsExist(const std::string& path);

/// Opens for writing, creating an empty file when none exists, and never truncates: with `append` at the end,
/// otherwise at offset 0 over the old bytes. Null when it cannot be opened; a pipe nobody reads counts as
/// that, so this does not block.
KWTSDK_EXPORT std::shared_ptr<FileHandle> getFileHandle(const std::string& path, bool append);
KWTSDK_EXPORT std::shared_ptr<FileHandle> getFileHandleForAppend(const std::string& path);
KWTSDK_EXPORT std::shared_ptr<FileHandle> getFileHandleForWrite(const std::string& path);

/// Closes the file; null is a no-op, and so is closing twice.
KWTSDK_EXPORT void closeFileHandle(const std::shared_ptr<FileHandle>& handle);

/// Blocks of the recorder's store in bytes: blocks * 32768.
KWTSDK_EXPORT std::uint64_t filesizeFromBlockNum(std::uint32_t blocks);

}  // namespace kwtsdk
