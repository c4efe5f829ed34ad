#pragma once

#include <cstdint>

#include <kwtsdk/export.h>

namespace kwtsdk::sim {

/// The seed that a test runner starts from: the environment variable KWTSDK_SEED (decimal), or `fallback`
/// when it is not set. Text that is no such number ends the process with status 2 and a message.
KWTSDK_EXPORT std::uint64_t seedFromEnvironment(std::uint64_t fallback);

}  // namespace kwtsdk::sim
