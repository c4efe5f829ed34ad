#include "tools/output_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include <kwtsdk/files.h>

#include "tools/failure.h"

namespace kwtsdk::tool {

namespace fs = std::filesystem;

namespace {

Failure unusable(const std::string& path, const std::string& reason, const std::string& hint) {
  return {ToolError::fileUnusable, "Cannot write " + path + ": " + reason + ".", hint};
}

void check(const std::string& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  if (fs::is_directory(status)) throw unusable(path, "it is a folder", "Name a file with -o.");
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    throw unusable(path, "it is not a regular file",
                   "Name another file with -o; the size of what is in it has to be known.");
  }
  const fs::path parent = fs::path(path).parent_path();
  if (!parent.empty() && !fs::is_directory(parent, ignored)) {
    throw unusable(path, parent.string() + " is not a folder",
                   "Create the folder, or name another file with -o.");
  }
  const bool isNew = !fs::exists(status);
  errno = 0;
  if (!getFileHandleForAppend(path)) {
    throw unusable(path, std::strerror(errno), "Check its permissions, or name another file with -o.");
  }
  if (isNew) fs::remove(path, ignored);  // the program may be ended before anything arrives
}

}  // namespace

OutputFile::OutputFile(std::string path) : path_(std::move(path)), isNew_(!fileIsExist(path_)) {
  check(path_);
}

OutputFile::~OutputFile() {
  std::error_code ignored;
  if (isNew_ && size() == 0) fs::remove(path_, ignored);
}

std::uint64_t OutputFile::size() const { return static_cast<std::uint64_t>(fileSize(path_)); }

}  // namespace kwtsdk::tool
