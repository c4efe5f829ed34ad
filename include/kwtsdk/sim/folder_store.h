#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

class FolderLock;

/// A folder as the recorder's store: its Ogg Opus files in name order are the recordings, and deleting one on
/// the recorder deletes the file. Hidden files, links, sub-folders and everything that is not Ogg Opus are
/// not on the recorder and are never touched. The first id outlives the program in `device/first-id` below
/// the folder.
class KWTSDK_EXPORT FolderStore : public RecordingStore {
 public:
  /// Looks at the folder once; files that come later belong to the next open. Throws std::runtime_error whose
  /// text says what to do when the folder cannot be read, holds what no recorder can or is another program's
  /// store at this moment.
  static std::shared_ptr<FolderStore> open(const std::filesystem::path& folder);
  ~FolderStore() override;

  /// What is wrong with recordings that are listed all the same, a sentence each.
  const std::vector<std::string>& warnings() const { return warnings_; }

  std::uint32_t firstId() const override { return firstId_; }
  std::size_t count() const override { return recordings_.size(); }
  RecordingInfo info(std::size_t index) const override;
  void read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const override;
  bool deleteFirst() override;

 private:
  struct File {
    std::filesystem::path path;
    RecordingInfo info;
    std::uint64_t size = 0;
  };
  explicit FolderStore(std::filesystem::path folder);

  std::filesystem::path folder_;
  std::unique_ptr<FolderLock> lock_;
  std::uint32_t firstId_;
  std::vector<File> recordings_;
  std::vector<std::string> warnings_;
};

}  // namespace kwtsdk::sim
