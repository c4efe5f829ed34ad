#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/export.h>

namespace kwtsdk {

/// The host's persistent key-value settings. Called on the library's work queues; may block for file access.
class KWTSDK_EXPORT Settings {
 public:
  virtual ~Settings() = default;
  virtual std::optional<std::uint64_t> read(const std::string& key) const = 0;
  virtual void write(const std::string& key, std::uint64_t value) = 0;
  virtual void remove(const std::string& key) = 0;

  /// Brings what was written and removed so far to stable storage.
  virtual void flush() = 0;
};

/// Settings in one small file, read on first use. flush replaces the file atomically, so that it is whole
/// after a crash at any moment; changes that are not flushed stay in memory until the object goes, which
/// flushes them. Lines that do not parse are dropped.
/// A file that cannot be written leaves the old one in place, one that cannot be read or is no regular file
/// is never replaced, and nothing waits for a lock of another program's: the next flush tries again. A
/// symbolic link stays one. Safe on any thread.
KWTSDK_EXPORT std::shared_ptr<Settings> fileSettings(const std::string& path);

}  // namespace kwtsdk
