#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include <kwtsdk/bytes.h>

namespace kwtsdk::sim {

/// A short text file; none when it does not exist. Throws std::runtime_error whose text says what to do when
/// it is something else, such as a pipe, which opening would wait for.
std::optional<std::string> textOf(const std::filesystem::path& path);

/// The folder `device` below the store's, where the recorder keeps what is its own. What is replaced there is
/// replaced atomically, and on stable storage when the function returns true; otherwise the old one stays.
class DeviceFolder {
 public:
  explicit DeviceFolder(const std::filesystem::path& store) : path_(store / "device") {}

  /// The id of the first recording, in `first-id`. 1 when the file does not exist. Throws std::runtime_error
  /// when it does not hold an id.
  std::uint32_t readFirstId() const;
  bool writeFirstId(std::uint32_t id) const;

  /// The image that an update left, in `firmware.bin`; none when the file does not exist. Throws
  /// std::runtime_error whose text says what to do when it holds no image.
  std::optional<Bytes> readFirmware() const;
  bool writeFirmware(const Bytes& image) const;

  /// A piece of an image that is on its way, in `firmware.bin.part`; false when the disk has no room for it.
  bool stageFirmware(std::size_t offset, std::span<const std::uint8_t> segment) const;

  /// How recorder and link behave. May not exist.
  std::filesystem::path script() const { return path_ / "script"; }

 private:
  bool replace(const std::string& name, const Bytes& content) const;

  const std::filesystem::path path_;
};

}  // namespace kwtsdk::sim
