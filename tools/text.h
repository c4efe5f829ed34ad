#pragma once

#include <cstdint>
#include <string>

#include <kwtsdk/file_time.h>

namespace kwtsdk::tool {

/// A recording's creation time on the recorder's own clock, as strftime prints it.
std::string creationTimeText(Date created, const char* format);

std::string bytesText(std::uint64_t count);                      // "84 bytes"
std::string ofBytesText(std::uint64_t done, std::uint64_t all);  // "84 of 98304 bytes"
std::string secondsText(double seconds, int decimals = 2);       // "4.98 s"

/// Text from elsewhere, in UTF-8, without what a terminal would obey.
std::string printable(std::string text);

}  // namespace kwtsdk::tool
