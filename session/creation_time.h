#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <span>

#include <kwtsdk/file_time.h>

namespace kwtsdk::session::detail {

/// KWTFileTime::instant() of a recorder's six bytes. None without a time, or with one that no calendar has.
std::optional<Date> creationTime(std::span<const std::uint8_t> sixBytes);

/// The wall clock's reading at an instant.
std::tm wallClock(Date instant);

}  // namespace kwtsdk::session::detail
