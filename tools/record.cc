#include <array>
#include <chrono>
#include <optional>

#include "tools/command_line.h"
#include "tools/live_capture.h"

namespace kwtsdk::tool {
namespace {

struct RecordRequest {
  std::string file;
  std::int64_t type;               // as startRecordWithType takes it
  std::optional<Duration> length;  // none: until something ends it
};

/// How a good end is told to people and to programs.
struct Ending {
  const char* text;
  const char* word;
};

Ending endingOf(CaptureEnd end) {
  switch (end) {
    case CaptureEnd::timeOver:
      return {"The time was over.", "time"};
    case CaptureEnd::key:
      return {"The key on the recorder ended it.", "key"};
    case CaptureEnd::call:
      return {"The recorder entered a call, which ended it.", "call"};
    case CaptureEnd::recorder:
      return {"The recorder ended it.", "recorder"};
    default:
      return {"It was stopped.", "host"};
  }
}

using Content = opus::RecordingMeter::Reading;

double secondsOf(const Content& content) { return std::chrono::duration<double>(content.recorded).count(); }

std::string amountOf(const Content& content) {
  return secondsText(secondsOf(content)) + ", " + bytesText(content.bytes);
}

Failure connectionLost(const std::string& file, const Content& content) {
  if (content.bytes == 0) {
    return {ToolError::connectionLost, "Connection lost before any sound arrived.",
            "Bring the recorder into range, then run the command again."};
  }
  return {ToolError::connectionLost,
          "Connection lost after " + secondsText(secondsOf(content)) + " (" + bytesText(content.bytes) + ").",
          file + " holds what arrived; `kwt convert` makes a WAV or MP3 file of it."};
}

Failure unwritable(const std::string& file, const std::string& reason, const Content& content) {
  return {ToolError::fileUnusable, "Cannot write " + file + ": " + reason + ".",
          "The recording was stopped; the file keeps its beginning (" + amountOf(content) +
              "). Free space on the disk or raise the limit, then record into another file."};
}

Failure notStopped(const std::string& file, const MaybeError& error, const Content& content) {
  const std::string text = "The recorder did not confirm the stop";
  const std::string hint = file + " holds what arrived (" + amountOf(content) +
                           "). Look whether the recorder still records, and end that with its key.";
  if (error) return {*error, text, hint};
  return {ToolError::notStopped, text + ".", hint};
}

void report(const CaptureOutcome& outcome, const std::string& file, const Content& content, Output& output) {
  output.set("bytes", content.bytes);
  output.set("seconds", secondsOf(content));
  switch (outcome.end) {
    case CaptureEnd::linkLost:
      throw connectionLost(file, content);
    case CaptureEnd::unwritable:
      throw unwritable(file, outcome.reason, content);
    case CaptureEnd::notStopped:
      throw notStopped(file, outcome.error, content);
    default:
      break;
  }
  const Ending ending = endingOf(outcome.end);
  output.set("ended", std::string(ending.word));
  if (content.bytes == 0) {
    throw Failure(ToolError::nothingRecorded, std::string("No sound arrived. ") + ending.text,
                  "Run the command again, for longer.");
  }
  output.line("Recorded " + file + " (" + amountOf(content) + "). " + ending.text);
}

void record(const Environment& environment, const RecordRequest& request, Output& output) {
  const OutputFile file(request.file);
  if (file.size() > 0) {
    throw Failure(ToolError::fileUnusable, "Cannot write " + file.path() + ": it is not empty.",
                  "Name another file with -o; a recording never overwrites one.");
  }
  output.set("file", file.path());
  output.set("type", request.type);
  Session session(environment);
  batteryLevel(session);
  pause(session);
  LiveCapture capture(session, file.path());
  const CaptureOutcome outcome = capture.run(request.type, request.length);
  report(outcome, file.path(), capture.measure(), output);
}

std::int64_t typeOf(const std::string& text) {
  /// By the number that the library and the recorder have for them.
  constexpr std::array<const char*, 5> types{"normal", "noise-reduced", "call", "media", "ambient"};
  for (std::size_t type = 0; type < types.size(); ++type) {
    if (text == types.at(type) || text == std::to_string(type)) return static_cast<std::int64_t>(type);
  }
  throw UsageError("There is no type " + text +
                   ": -t takes normal, noise-reduced, call, media, ambient or 0 to 4");
}

Action prepareRecord(const Arguments& arguments) {
  constexpr Duration longest = std::chrono::seconds(1000000);
  require(!arguments.text("-o").empty(), "-o needs the name of a file");
  const RecordRequest request{arguments.text("-o"), arguments.has("-t") ? typeOf(arguments.text("-t")) : 0,
                              arguments.duration("-d", longest)};
  return [request](const Environment& environment, Output& output) { record(environment, request, output); };
}

const RegisteredCommand kRecordCommand(
    {.place = 6,
     .name = "record",
     .description = "Record live into a file, until Ctrl-C, the recorder or the time ends it",
     .parameters = {{.name = "-o,--output",
                     .valueName = "FILE",
                     .description = "File to write: a new one, or one that is empty",
                     .isRequired = true},
                    {"-t,--type", "TYPE",
                     "normal (0, the default), noise-reduced (1), call (2), media (3) or ambient (4)"},
                    {"-d,--duration", "SECONDS", "End it after so many seconds, such as 2.5",
                     Parameter::Kind::seconds}},
     .prepare = prepareRecord});

}  // namespace
}  // namespace kwtsdk::tool
