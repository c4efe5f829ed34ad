#pragma once

#include <kwtsdk/sim/scripted_faults.h>

#include "sim/link/script_line.h"

namespace kwtsdk::sim {

/// Reads a fault line into `faults`; false when the line does not begin with a kind of event.
bool readFaultLine(const ScriptLine& line, ScriptedFaults& faults);

}  // namespace kwtsdk::sim
