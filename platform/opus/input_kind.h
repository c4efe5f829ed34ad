#pragma once

#include <kwtsdk/opus/conversion.h>

#include "platform/opus/input_file.h"

namespace kwtsdk::internal {

/// What the file is by its content. Throws ConversionFailure, which says what was found, when it is neither
/// kind of recording.
opus::Source recognise(const InputFile& file);

}  // namespace kwtsdk::internal
