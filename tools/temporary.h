#pragma once

#include <string>

namespace kwtsdk::tool {

/// TMPDIR, or where it is usual to keep what may be large: often memory has to hold /tmp.
std::string folderOfTemporaries();

/// A file in `folder` that no other program knows, removed at the end or before: what has it open then keeps
/// it. Throws a Failure.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& folder);
  ~TemporaryFile() { removeName(); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::string& path() const { return path_; }
  void removeName();

 private:
  std::string path_;
};

/// A folder among the temporaries, removed with all that is in it. Throws a Failure.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace kwtsdk::tool
