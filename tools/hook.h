#pragma once

#include <string>

#include "tools/delivery.h"

namespace kwtsdk::tool {

/// Runs a person's command for a recording that has been saved: by sh, with the file as $1 and KWT_FILE,
/// KWT_ID and KWT_CREATED in its environment. What it prints goes where kwt prints, or, `printsAside`, to
/// standard error. Ctrl-C ends it too. "" or what went wrong.
std::string runHook(const Environment& environment, const std::string& command, const Delivered& delivered,
                    bool printsAside);

}  // namespace kwtsdk::tool
