#pragma once

#include <filesystem>

namespace kwtsdk::sim {

/// Creates `folder` with three short Ogg Opus recordings in it (a melody, a chord, a sweep), the same bytes
/// each time: a store for FolderStore. Throws std::runtime_error whose text says what to do, and leaves
/// nothing behind, when the folder is not new or empty or cannot be written.
void writeSampleStore(const std::filesystem::path& folder);

}  // namespace kwtsdk::sim
