#pragma once

#include <memory>

#include <kwtsdk/log.h>
#include <kwtsdk/opus_converter.h>

namespace kwtsdk::internal {

/// The converter of libkwtsdk_opus, which is loaded at the first conversion: the library itself needs no
/// codec. Where it is not installed every conversion fails, with a line in the log.
std::shared_ptr<OpusConverter> installedConverter(std::shared_ptr<Log> log);

}  // namespace kwtsdk::internal
