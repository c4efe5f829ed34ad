#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace kwtsdk::testing {

/// The command that repeats one seed of a campaign, in the tests that the filter names.
inline std::string repeating(std::uint64_t seed, const std::string& filter = "*") {
  std::string command = "repeat with: KWTSDK_SEED=";
  command.append(std::to_string(seed)).append(" ");
  command.append(std::filesystem::read_symlink("/proc/self/exe").string());
  return command.append(" --gtest_filter='").append(filter).append("'\n");
}

}  // namespace kwtsdk::testing
