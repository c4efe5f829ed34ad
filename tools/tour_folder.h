#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace kwtsdk::tool {

/// The new folder that a tour works in: a simulated recorder's store, an untouched copy of its first
/// recording, a firmware image, and what the tour downloads, records and converts. It stays. Throws
/// std::runtime_error whose text says what to do.
class TourFolder {
 public:
  TourFolder();

  std::string path() const { return path_; }
  std::string store() const { return path_ / "store"; }
  std::string pulled() const { return path_ / "pulled.opus"; }
  std::string original() const { return path_ / "original.opus"; }
  std::string file(const char* name) const { return path_ / name; }

  std::string firmware() const { return path_ / "firmware.bin"; }

  /// How the recorder's link behaves from the next connection on; `faults` in the language of its script.
  void writeScript(const std::string& faults) const;

  /// The first recording's size on the recorder, which stores whole blocks.
  std::uint64_t storedSize() const;

  /// Whether what was pulled is the original, followed by the zeros that fill its last block.
  bool isPulledWhole() const;

  /// A firmware image of version 2.5.1.
  void writeFirmware() const;

  /// Whether the recorder has what writeFirmware wrote.
  bool isFirmwareInstalled() const;

  bool isFirstDeleted() const { return !std::filesystem::exists(first_); }

 private:
  std::filesystem::path path_, first_;
};

}  // namespace kwtsdk::tool
