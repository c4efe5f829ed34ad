#include <chrono>

#include "tools/commands.h"
#include "tools/output_file.h"
#include "tools/recorder_queries.h"
#include "tools/recording.h"
#include "tools/text.h"

namespace kwtsdk::tool {
namespace {

/// How a good end is told to people and to programs.
struct Ending {
  const char* text;
  const char* word;
};

Ending endingOf(RecordingEnd end) {
  switch (end) {
    case RecordingEnd::timeOver:
      return {"The time was over.", "time"};
    case RecordingEnd::key:
      return {"The key on the recorder ended it.", "key"};
    case RecordingEnd::call:
      return {"The recorder entered a call, which ended it.", "call"};
    case RecordingEnd::recorder:
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

void report(const RecordingOutcome& outcome, const std::string& file, const Content& content,
            Output& output) {
  output.set("bytes", content.bytes);
  output.set("seconds", secondsOf(content));
  switch (outcome.end) {
    case RecordingEnd::linkLost:
      throw connectionLost(file, content);
    case RecordingEnd::unwritable:
      throw unwritable(file, outcome.reason, content);
    case RecordingEnd::notStopped:
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

}  // namespace

void runRecord(const Host& host, const RecordRequest& request, Output& output) {
  const OutputFile file(request.file);
  if (file.size() > 0) {
    throw Failure(ToolError::fileUnusable, "Cannot write " + file.path() + ": it is not empty.",
                  "Name another file with -o; a recording never overwrites one.");
  }
  output.set("file", file.path());
  output.set("type", request.type);
  Session session(host);
  batteryLevel(session);
  pause(session);
  Recording recording(session, file.path());
  const RecordingOutcome outcome = recording.run(request.type, request.length);
  report(outcome, file.path(), recording.measure(), output);
}

}  // namespace kwtsdk::tool
