#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <kwtsdk/format_argument.h>

namespace kwtsdk::internal {

/// Fills a printf-style format; "%@" takes text. Length modifiers are ignored, since arguments know their
/// size. An argument of another kind than its placeholder is printed plainly, a missing one leaves the
/// placeholder standing, surplus ones are dropped.
std::string formatText(std::string_view format, const std::vector<FormatArgument>& arguments);

}  // namespace kwtsdk::internal
