#pragma once

#include <filesystem>
#include <fstream>
#include <string>

#include <stdlib.h>
#include <unistd.h>

#include <kwtsdk/bytes.h>

namespace kwtsdk::testing {

/// A folder of its own for one test, removed at its end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    // In memory where there is such a folder: what is tested syncs many small files.
    const bool isInMemory = ::getenv("TMPDIR") == nullptr && ::access("/dev/shm", W_OK) == 0;
    const std::filesystem::path home = isInMemory ? "/dev/shm" : std::filesystem::temp_directory_path();
    std::string pattern = (home / "kwtsdk-test-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string file(const std::string& name) const { return (path_ / name).string(); }
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

inline std::string contentOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

}  // namespace kwtsdk::testing
