#pragma once

#include "tools/command_line.h"

namespace kwtsdk::tool {

/// `pull -o -`: the first recording into the pipe that standard output is, when all of it has been checked.
/// The recorder keeps its copy, since nobody can say what becomes of bytes in a pipe. Throws UsageError.
Action preparePipe(const Arguments& arguments);

}  // namespace kwtsdk::tool
