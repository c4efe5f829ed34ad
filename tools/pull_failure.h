#pragma once

#include <cstdint>
#include <string>

#include "tools/failure.h"

namespace kwtsdk::tool {

/// What keeps the bytes of a file until it is whole.
std::string partOf(const std::string& file);

/// Why a recording is not in the file, and what has to be done. `total` 0: the recorder has not told it.
Failure pullFailure(const session::Failure& failure, const std::string& file, std::uint64_t total);

}  // namespace kwtsdk::tool
