#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/command_line.h"
#include "tools/question.h"

namespace kwtsdk::tool {
namespace {

using session::RecordingInfo;

std::string describe(const RecordingInfo& recording) {
  return "recording " + std::to_string(recording.id) + " (" + bytesText(recording.bytes) +
         (recording.created ? ", made " + creationTimeText(*recording.created, "%Y-%m-%d %H:%M:%S") : "") +
         ")";
}

/// The first recording is the only one that a recorder deletes.
void checkIsFirst(const RecordingInfo& first, std::uint32_t id) {
  if (first.id == id) return;
  throw Failure(ToolError::other,
                "The recorder deletes only its first recording, which is not " + std::to_string(id) +
                    ": it is " + describe(first) + ".",
                "Look at the recordings with `kwt list`; `kwt pull` saves and deletes them in order.");
}

void askWhich(const Environment& environment, const RecordingInfo& first) {
  const std::string why = "The recorder's first is " + describe(first) + ".",
                    otherwise = "`kwt rm " + std::to_string(first.id) + "` deletes it.";
  if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDERR_FILENO) == 0)
    throw Failure(ToolError::usage, "Which recording? " + why, otherwise);
  askForYes(environment, why, "Delete it?", otherwise);
}

void deleteFirst(const Environment& environment, session::Session& recorder, std::uint32_t id) {
  const auto result = recorder.remove(id, limitsOfQuery(environment)).wait();
  if (result) return;
  if (result.error().effect() != session::Effect::unknown) throw explained(result.error());
  throw Failure(ToolError::notDeleted,
                "The recorder did not confirm that it deleted recording " + std::to_string(id) + ".",
                "Look with `kwt list` whether it is still there before you run `kwt rm` again.");
}

void removeFirst(const Environment& environment, std::optional<std::uint32_t> id, Output& output) {
  const auto recorder = openRecorder(environment);
  const RecordingInfo first = firstRecording(environment, *recorder);
  if (id) {
    checkIsFirst(first, *id);
  } else {
    askWhich(environment, first);
  }
  deleteFirst(environment, *recorder, first.id);
  output.line("Deleted " + describe(first) + " from the recorder.");
  output.set("id", std::uint64_t{first.id});
  output.set("size", first.bytes);
  output.set("deleted", true);
}

std::uint32_t idOf(const std::string& text) {
  std::uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  require(error == std::errc() && end == text.data() + text.size(),
          text + " is no recording's id, which is a number: `kwt list` shows them");
  return id;
}

Action prepareRemove(const Arguments& arguments) {
  std::optional<std::uint32_t> id;
  if (arguments.has("id")) id = idOf(arguments.text("id"));
  return [id](const Environment& environment, Output& output) { removeFirst(environment, id, output); };
}

const RegisteredCommand kRemoveCommand(
    {.place = 5,
     .name = "rm",
     .description = "Delete the first recording on the recorder",
     .parameters = {{"id", "ID", "Its id, as `kwt list` shows it; without one a person is asked"}},
     .prepare = prepareRemove});

}  // namespace
}  // namespace kwtsdk::tool
