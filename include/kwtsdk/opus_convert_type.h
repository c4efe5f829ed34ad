#pragma once

#include <cstdint>

namespace kwtsdk {

/// What a recording is converted to.
enum OpusConvertType : std::int64_t { OpusConvertTypeMp3 = 0, OpusConvertTypeWav = 1 };

}  // namespace kwtsdk
