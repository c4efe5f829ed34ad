#pragma once

#include <cstdint>

#include "tests/campaign/ledger.h"

namespace kwtsdk::campaign {

struct Profile {
  const char* name;
  int hosts;      // threads that use the facade, 1 or 2
  bool blocking;  // blocking forms and what is made of them: listing, download, deletion of the first file
  Trouble trouble;
};

/// One recorder, one facade, one or two host threads with random operations, all decided by the seed.
/// Failures are reported through GoogleTest.
void runScenario(std::uint64_t seed, const Profile& profile);

}  // namespace kwtsdk::campaign
