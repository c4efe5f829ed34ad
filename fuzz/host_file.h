#pragma once

#include <string>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::fuzz {

/// A folder that stays while the process runs: making one takes longer than most inputs do.
inline const testing::TemporaryFolder& hostFolder() {
  static const testing::TemporaryFolder folder;
  return folder;
}

}  // namespace kwtsdk::fuzz
