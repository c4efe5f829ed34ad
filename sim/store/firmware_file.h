#pragma once

#include <filesystem>
#include <optional>

#include <kwtsdk/bytes.h>

namespace kwtsdk::sim {

/// The firmware image that an update left, `device/firmware.bin` below the store's folder; none when the file
/// does not exist. Throws std::runtime_error whose text says what to do when it holds no image.
std::optional<Bytes> readFirmware(const std::filesystem::path& folder);

/// Replaces the file atomically, on stable storage when this returns true.
bool writeFirmware(const std::filesystem::path& folder, const Bytes& image);

}  // namespace kwtsdk::sim
