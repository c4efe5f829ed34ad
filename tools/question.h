#pragma once

#include <string>

#include "tools/recorder.h"

namespace kwtsdk::tool {

/// Asks somebody at a terminal, who has to say yes: standard input and standard error are one. Throws a
/// Failure with `why` for every other answer, and where nobody can be asked, with `otherwise` as what to do.
void askForYes(const Environment& environment, const std::string& why, const std::string& question,
               const std::string& otherwise);

}  // namespace kwtsdk::tool
