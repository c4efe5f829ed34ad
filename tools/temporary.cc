#include "tools/temporary.h"

#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <utility>

#include "tools/failure.h"

namespace kwtsdk::tool {
namespace {

Failure noTemporary(const std::string& folder) {
  return {ToolError::fileUnusable,
          "Cannot make a temporary file in " + folder + ": " + std::strerror(errno) + ".",
          "Check the folder, its permissions and its free space; TMPDIR may name another one."};
}

std::string patternIn(const std::string& folder) { return folder + "/.kwt-XXXXXX"; }

}  // namespace

std::string folderOfTemporaries() {
  const char* const named = std::getenv("TMPDIR");
  if (named != nullptr && *named != '\0') return named;
  constexpr const char* usual = "/var/tmp";
  return ::access(usual, W_OK) == 0 ? usual : "/tmp";
}

TemporaryFile::TemporaryFile(const std::string& folder) : path_(patternIn(folder)) {
  const int descriptor = ::mkstemp(path_.data());
  if (descriptor < 0) throw noTemporary(folder);
  ::close(descriptor);
}

void TemporaryFile::removeName() {
  if (!path_.empty()) ::unlink(std::exchange(path_, "").c_str());
}

TemporaryFolder::TemporaryFolder() : path_(patternIn(folderOfTemporaries())) {
  if (::mkdtemp(path_.data()) == nullptr) throw noTemporary(folderOfTemporaries());
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

}  // namespace kwtsdk::tool
