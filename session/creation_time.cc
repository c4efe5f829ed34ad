#include "session/creation_time.h"

namespace kwtsdk::session::detail {

std::optional<Date> creationTime(std::span<const std::uint8_t> sixBytes) {
  constexpr std::size_t fields = 6;
  const auto time = sixBytes.size() < fields ? std::nullopt : KWTFileTime::fileTimeStruct(sixBytes.data());
  return time ? time->instant() : std::nullopt;
}

std::tm wallClock(Date instant) {
  const std::time_t seconds = instant.time_since_epoch().count();
  std::tm fields{};
  ::localtime_r(&seconds, &fields);
  return fields;
}

}  // namespace kwtsdk::session::detail
