#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

void deleteFirst(const Environment& environment, session::Session& recorder, std::uint32_t id) {
  const auto result = recorder.remove(id, limitsOfQuery(environment)).wait();
  if (result) return;
  if (result.error().effect() != session::Effect::unknown) throw explained(result.error());
  throw Failure(ToolError::notDeleted,
                "The recorder did not confirm that it deleted recording " + std::to_string(id) + ".",
                "Look with `kwt list` whether it is still there before you run `kwt rm` again.");
}

void removeFirst(const Environment& environment, Output& output) {
  const auto recorder = openRecorder(environment);
  const session::RecordingInfo first = firstRecording(environment, *recorder);
  deleteFirst(environment, *recorder, first.id);
  output.line(
      "Deleted recording " + std::to_string(first.id) + " from the recorder (" + bytesText(first.bytes) +
      (first.created ? ", made " + creationTimeText(*first.created, "%Y-%m-%d %H:%M:%S") : "") + ").");
  output.set("id", std::uint64_t{first.id});
  output.set("size", first.bytes);
  output.set("deleted", true);
}

const RegisteredCommand kRemoveCommand({.place = 5,
                                        .name = "rm",
                                        .description = "Delete the first recording on the recorder",
                                        .prepare = [](const Arguments&) { return removeFirst; }});

}  // namespace
}  // namespace kwtsdk::tool
