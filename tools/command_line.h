#pragma once

#include <functional>
#include <string>
#include <variant>

#include "tools/output.h"
#include "tools/session.h"

namespace kwtsdk::tool {

/// What the command line asks for.
struct Invocation {
  std::function<void(const Host&, Output&)> command;
  std::string simulatedFolder, device;
  bool json = false;
};

/// The exit status when there is nothing to run: help or the version (0) or a usage error (2) has been
/// printed.
std::variant<Invocation, int> parseCommandLine(int argc, char** argv);

}  // namespace kwtsdk::tool
