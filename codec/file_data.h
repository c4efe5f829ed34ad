#pragma once

#include <optional>
#include <string>

#include <kwtsdk/bytes.h>

namespace kwtsdk::internal {

/// The whole file; none when it cannot be read or is a directory. An empty file is an empty buffer.
std::optional<Bytes> dataOfFile(const std::string& path);

}  // namespace kwtsdk::internal
