#pragma once

#include <cstdint>
#include <string>

namespace kwtsdk::tool {

/// "98.3 kB", "536.9 MB"; below 1000 "80 bytes".
std::string sizeText(std::uint64_t bytes);

/// A battery level in percent where it can be one: recorders tell a number, and not what it counts.
std::string batteryText(std::uint64_t level);

/// The greatest level that is taken for percent.
inline constexpr std::uint64_t kFullBattery = 100;

/// A recording's type as `kwt record -t` names it; another one's number.
std::string typeText(std::int64_t type);

}  // namespace kwtsdk::tool
