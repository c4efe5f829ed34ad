#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "session/conversation.h"

namespace kwtsdk::session::detail {

// The recordings on the recorder. Each is one exchange or several over one link; over more than one they are
// put into Conversation::persist.

struct StoreCount {
  std::uint64_t count = 0;
  std::uint32_t firstId = 0;
  friend bool operator==(const StoreCount&, const StoreCount&) = default;
};

Result<StoreCount> askCount(Conversation& recorder);

/// None: the recorder says that there is none of that id.
Result<std::optional<RecordingInfo>> askInfo(Conversation& recorder, std::uint32_t id);

/// Oldest first.
Result<std::vector<RecordingInfo>> askRecordings(Conversation& recorder);

/// The first recording, which has to be `expected` if that is given: storeEmpty, notFirst, noSuchRecording.
Result<RecordingInfo> askFirst(Conversation& recorder, std::optional<std::uint32_t> expected);

/// Whether both are the same one: a recorder may have begun its ids anew.
bool isSame(const RecordingInfo& one, const RecordingInfo& other);

/// This recording has to be the first still.
MaybeFailure askStillFirst(Conversation& recorder, const RecordingInfo& recording);

/// Asks for the deletion of a recording that is the first. A failure's effect tells whether it may have been
/// done.
MaybeFailure askDeletion(Conversation& recorder, const RecordingInfo& recording);

Result<Done> removeFirst(Conversation& recorder, std::uint32_t id);

}  // namespace kwtsdk::session::detail
