#pragma once

#include <filesystem>

namespace kwtsdk::sim {

/// One program at a time has a store's folder: two recorders would delete each other's recordings. Ends with
/// the object, and with the program however that ends.
class FolderLock {
 public:
  /// Throws std::runtime_error whose text says which program has the folder.
  explicit FolderLock(const std::filesystem::path& folder);
  ~FolderLock();
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;

 private:
  int descriptor_;
};

}  // namespace kwtsdk::sim
