#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include <kwtsdk/export.h>
#include <kwtsdk/session/result.h>

namespace kwtsdk::session {

struct FirmwareImage {
  std::uint64_t bytes = 0;
  std::string version;         // as the recorder tells it, "2.5.1", from the image's last bytes
  bool looksLikeText = false;  // which update() installs: it may be an image all the same
};

/// What Session::update() finds before it sends anything, without a recorder. Errors: fileUnusable,
/// imageRefused. Reads the file on the calling thread.
KWTSDK_EXPORT Result<FirmwareImage> inspectImage(const std::filesystem::path& image);

}  // namespace kwtsdk::session
