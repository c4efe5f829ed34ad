#pragma once

#include <cstdint>
#include <filesystem>

namespace kwtsdk::sim {

/// The id of the first recording, kept in `device/first-id` below the store's folder.
/// 1 when the file does not exist. Throws std::runtime_error when it does not hold an id.
std::uint32_t readFirstId(const std::filesystem::path& folder);

/// Replaces the file atomically, on stable storage when this returns true.
bool writeFirstId(const std::filesystem::path& folder, std::uint32_t id);

}  // namespace kwtsdk::sim
