#pragma once

#include <kwtsdk/platform.h>

namespace kwtsdk::internal {

/// `platform` with its null members filled.
Platform withDefaults(Platform platform);

}  // namespace kwtsdk::internal
