#pragma once

#include <atomic>
#include <filesystem>
#include <memory>

#include "session/conversation.h"
#include "session/worker.h"

namespace kwtsdk::session::detail {

/// What stopRecording() and the recording share.
using StopWish = std::shared_ptr<std::atomic<bool>>;

Result<Recorded> record(Conversation& recorder, Worker& worker, const std::filesystem::path& file,
                        const RecordOptions& options, const StopWish& stop);

}  // namespace kwtsdk::session::detail
