#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "session/operation_job.h"

namespace kwtsdk::session::detail {

// The questions of a Session's status operations.

Query<std::uint64_t> batteryQuery();
Query<ByteCounts> storageQuery();

/// `noted` gets the version as well.
using NoteVersion = std::function<void(const std::string&)>;
Query<std::string> firmwareQuery(const NoteVersion& noted);
Query<Status> statusQuery(const NoteVersion& noted);

}  // namespace kwtsdk::session::detail
