#pragma once

#include <filesystem>

namespace kwtsdk::sim {

/// Whether the file begins as every Ogg Opus file does (RFC 7845, section 3): an Ogg page whose packet is the
/// identification header. False also for a file that cannot be read.
bool isOggOpusFile(const std::filesystem::path& path);

}  // namespace kwtsdk::sim
