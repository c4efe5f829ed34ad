#pragma once

#include <memory>

#include <kwtsdk/export.h>
#include <kwtsdk/log.h>
#include <kwtsdk/opus_converter.h>

namespace kwtsdk::opus {

/// The converter that convert() stands behind, for Platform::opusConverter. Its status is 0 or -1; why a
/// conversion failed, and how many damaged packets one met, goes to `log`, which may be null. The parameter
/// of opus2mp3 is the bit rate in kbit/s. Safe on any thread, several conversions at a time.
KWTSDK_EXPORT std::shared_ptr<OpusConverter> opusFileConverter(std::shared_ptr<Log> log);

}  // namespace kwtsdk::opus
