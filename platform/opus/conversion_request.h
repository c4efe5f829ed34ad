#pragma once

#include <cstdint>
#include <string>

#include <kwtsdk/opus/conversion.h>

namespace kwtsdk::opus {

struct ConversionRequest {
  Format format;
  std::int32_t kilobitsPerSecond;
  const ConversionProgress& progress;
  bool keepsOrigin;  // the output gets the recording's title and the time of its file
};

/// As the public convert().
ConversionResult convert(const std::string& input, const std::string& output,
                         const ConversionRequest& request);

}  // namespace kwtsdk::opus
