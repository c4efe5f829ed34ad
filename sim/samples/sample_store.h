#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>

#include <kwtsdk/bytes.h>

#include "sim/samples/sounds.h"

namespace kwtsdk::sim {

/// Writes the samples as Ogg Opus: 64 kbit/s, frames of 20 ms. The same samples and serial number give the
/// same bytes. Throws std::runtime_error.
void writeOpusFile(const std::filesystem::path& path, const Samples& samples, int serialNumber);

/// Creates `folder` with three short Ogg Opus recordings in it (a melody, a chord, a sweep), the same bytes
/// each time: a store for FolderStore. Throws std::runtime_error whose text says what to do, and leaves
/// nothing behind, when the folder is not new or empty or cannot be written.
void writeSampleStore(const std::filesystem::path& folder);

/// A firmware image, the same each time: noise that ends with the version and one more byte. Throws
/// std::invalid_argument for fewer than 4 bytes.
Bytes firmwareImage(std::size_t size, std::array<std::uint8_t, 3> version);

}  // namespace kwtsdk::sim
