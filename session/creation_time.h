#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>

#include <kwtsdk/file_time.h>

namespace kwtsdk::session::detail {

/// The instant that a recorder's six bytes name: wall clock and years since 2000. None without a time, or
/// with one that no calendar has. KWTFileTime::toDate is not for this: it takes the year literally and every
/// date as standard time.
std::optional<Date> creationTime(std::span<const std::uint8_t> sixBytes);

/// The wall clock's reading at an instant.
std::tm wallClock(Date instant);

}  // namespace kwtsdk::session::detail
