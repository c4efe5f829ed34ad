#pragma once

#include <cstdint>
#include <filesystem>
#include <span>

namespace kwtsdk::sim {

/// Replaces a file of the recorder's own, `device/NAME` below the store's folder, atomically; it is on stable
/// storage when this returns true. Otherwise the old one stays.
bool replaceDeviceFile(const std::filesystem::path& folder, const char* name,
                       std::span<const std::uint8_t> content);

/// Its path.
std::filesystem::path deviceFile(const std::filesystem::path& folder, const char* name);

}  // namespace kwtsdk::sim
