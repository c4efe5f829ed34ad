#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "session/conversation.h"

namespace kwtsdk::session::detail {

Result<Saved> download(Conversation& recorder, const std::filesystem::path& file,
                       const DownloadOptions& options, std::optional<std::uint32_t> expected);

Result<Harvest> downloadAll(Conversation& recorder, const std::filesystem::path& folder,
                            const DownloadOptions& options);

}  // namespace kwtsdk::session::detail
