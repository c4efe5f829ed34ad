#pragma once

#include <optional>
#include <string>

#include <kwtsdk/bytes.h>

namespace kwtsdk::internal {

/// What the recorder knows an image by, as hex text: its last four bytes with the very last replaced by zero.
/// None for fewer than four bytes.
std::optional<std::string> identifyImage(const Bytes& image);

}  // namespace kwtsdk::internal
