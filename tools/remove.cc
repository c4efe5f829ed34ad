#include <chrono>
#include <cstdint>

#include "tools/command_line.h"
#include "tools/handover.h"

namespace kwtsdk::tool {
namespace {

// The deletion itself has no time-out: without an answer its completion never comes.
void deleteFirst(Session& session, std::int64_t id) {
  constexpr Duration longest = std::chrono::seconds(10);
  struct Answer {
    bool linkLost;
    MaybeError error;
  };
  const auto answer = std::make_shared<Handover<Answer>>(session.scheduler(), "kwt.rm");
  session.connection().setOnDisconnect([answer] { answer->put({true, std::nullopt}); });
  session.recorder().deleteFirstFlashFile([answer](const MaybeError& error) { answer->put({false, error}); });
  const auto result = answer->take(longest);
  if (result && !result->linkLost && !result->error) return;
  if (result && result->error && result->error->domain() == kLibraryDomain) throw explained(*result->error);
  throw Failure(ToolError::notDeleted,
                "The recorder did not confirm that it deleted recording " + std::to_string(id) + ".",
                "Look with `kwt list` whether it is still there before you run `kwt rm` again.");
}

void removeFirst(const Environment& environment, Output& output) {
  Session session(environment);
  const FirstRecording first = firstRecording(session);
  pause(session);
  deleteFirst(session, first.id);

  const auto created = first.header.creatTime();
  output.line("Deleted recording " + std::to_string(first.id) + " from the recorder (" +
              bytesText(first.header.filesize()) +
              (created ? ", made " + creationTimeText(*created, "%Y-%m-%d %H:%M:%S") : std::string()) + ").");
  output.set("id", first.id);
  output.set("size", first.header.filesize());
  output.set("deleted", true);
}

const RegisteredCommand kRemoveCommand({.place = 5,
                                        .name = "rm",
                                        .description = "Delete the first recording on the recorder",
                                        .prepare = [](const Arguments&) { return removeFirst; }});

}  // namespace
}  // namespace kwtsdk::tool
