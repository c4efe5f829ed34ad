#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <kwtsdk/error.h>

namespace kwtsdk {

// Every callback may be empty; calling an empty one is a no-op. An exception that leaves a callback stops
// where the library called it and is logged: the operation goes on as if the callback had returned.

using Completion = std::function<void(const MaybeError&)>;
template <class T>
using ValueCompletion = std::function<void(const MaybeError&, const std::optional<T>&)>;

/// (error, reply as lower-case hex: two characters per byte).
using ReplyHandler = ValueCompletion<std::string>;
using LevelCompletion = std::function<void(const MaybeError&, std::uint64_t)>;
using StepCompletion = std::function<void(const MaybeError&, bool)>;

/// Bytes done so far and in all.
using Progress = std::function<void(std::uint64_t done, std::uint64_t total)>;

/// Capacity: {first, second} in bytes. Deletion reply: {result code, second value}.
using ByteCounts = std::vector<std::uint64_t>;

/// What the recorder's store holds: the number of files and the id of the first; both 0 for an empty store.
struct FlashInfo {
  std::uint64_t Num = 0;
  std::uint64_t FirstID = 0;

  friend bool operator==(const FlashInfo&, const FlashInfo&) = default;
};

}  // namespace kwtsdk
