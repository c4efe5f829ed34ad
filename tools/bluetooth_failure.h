#pragma once

#include <kwtsdk/error.h>

#include "tools/failure.h"

namespace kwtsdk::tool {

/// The adapter's errors, and BlueZ's own, in the words of someone at a terminal.
Failure bluetoothFailure(const Error& error);

}  // namespace kwtsdk::tool
