#pragma once

#include <string>
#include <vector>

#include "sim/samples/sounds.h"

namespace kwtsdk::tool {

/// The note that stands out in each whole half-second, such as "C4", from C4 to B5; "?" where none does.
std::vector<std::string> notesIn(const sim::Samples& samples, int sampleRate);

}  // namespace kwtsdk::tool
