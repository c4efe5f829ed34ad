#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <kwtsdk/format_argument.h>

namespace kwtsdk::internal {

/// Fills a format as printf does (POSIX.1-2017, fprintf): flags, width, precision, "*" and length modifiers;
/// "%@" takes text like "%s". Without a length modifier a number counts with the size it has. A width or
/// precision above 65535 counts as that. An argument of another kind than its placeholder is printed plainly,
/// a missing one leaves the placeholder standing, surplus ones are dropped.
std::string formatText(std::string_view format, const std::vector<FormatArgument>& arguments);

}  // namespace kwtsdk::internal
