#pragma once

#include <cstdint>
#include <string>

#include "tools/failure.h"
#include "tools/installation.h"

namespace kwtsdk::tool {

/// Why the update with an image of that many bytes did not end well.
Failure updateFailure(const InstallationOutcome& outcome, const std::string& image, std::uint64_t size,
                      Session& session);

/// The recorder has accepted the image, and what it runs now is not known.
Failure notConfirmed();

}  // namespace kwtsdk::tool
