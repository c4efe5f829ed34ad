#pragma once

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include <stdlib.h>
#include <sys/resource.h>
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

/// One that stays while the process runs: making it takes longer than most scenarios and inputs do.
inline const TemporaryFolder& sharedFolder() {
  static const TemporaryFolder folder;
  return folder;
}

using Names = std::set<std::string>;

inline Names namesIn(const std::string& folder) {
  Names names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) names.insert(entry.path().filename());
  return names;
}

inline std::string text(const Bytes& bytes) { return {bytes.begin(), bytes.end()}; }

inline std::string contentOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeFile(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}
inline void writeFile(const std::string& path, const Bytes& content) { writeFile(path, text(content)); }

/// Files of this process grow no further while it lives, as on a disk that is full.
class FullDisk {
 public:
  explicit FullDisk(rlim_t size) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{std::min(size, before_.rlim_max), before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, signal_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
  void (*const signal_)(int);
};

}  // namespace kwtsdk::testing
