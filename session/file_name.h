#pragma once

#include <optional>
#include <string>

#include <kwtsdk/session/errc.h>
#include <kwtsdk/session/events.h>

namespace kwtsdk::session::detail {

/// badArgument unless the pattern makes names of files in one folder.
std::optional<Failure> checkNamePattern(const std::string& pattern);

/// The pattern with strftime's conversions of the creation time, on the wall clock, and {id}. Without a
/// creation time conversions become the word "undated", those with nothing but punctuation between them one.
std::string fileName(const std::string& pattern, const RecordingInfo& recording);

}  // namespace kwtsdk::session::detail
