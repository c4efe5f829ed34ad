#pragma once

#include "session/conversation.h"

namespace kwtsdk::session::detail {

/// Runs the host's work with the recorder to itself, over one link.
Result<Done> transact(Conversation& recorder, Work& work);

}  // namespace kwtsdk::session::detail
