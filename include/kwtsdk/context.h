#pragma once

#include <cstdint>

#include <kwtsdk/export.h>

namespace kwtsdk {

/// What the dispatcher attaches to the characteristic a command is written to.
class KWTSDK_EXPORT KWTContext {
 public:
  static KWTContext contextWithCmdType(std::int64_t cmdType);
  std::int64_t cmdType() const { return cmdType_; }

 private:
  explicit KWTContext(std::int64_t cmdType) : cmdType_(cmdType) {}
  std::int64_t cmdType_;
};

}  // namespace kwtsdk
