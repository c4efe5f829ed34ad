#pragma once

#include <string>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::fuzz {

/// A folder that stays while the process runs: making one takes longer than most inputs do.
inline const testing::TemporaryFolder& hostFolder() {
  static const testing::TemporaryFolder folder;
  return folder;
}

/// A file in it that holds so many bytes.
inline std::string hostFile(const std::string& name, std::size_t size) {
  const std::string path = hostFolder().file(name);
  testing::writeFile(path, Bytes(size, 3));
  return path;
}

}  // namespace kwtsdk::fuzz
