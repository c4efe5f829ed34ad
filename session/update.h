#pragma once

#include <filesystem>

#include "session/conversation.h"
#include "session/queries.h"

namespace kwtsdk::session::detail {

Result<Installed> update(Conversation& recorder, const std::filesystem::path& image,
                         const NoteVersion& noted);

}  // namespace kwtsdk::session::detail
