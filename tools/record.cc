#include <array>
#include <chrono>
#include <stop_token>

#include <kwtsdk/files.h>
#include <kwtsdk/opus/recording_meter.h>

#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

using session::Errc;
using session::Recorded;
using session::RecordingEnd;
using session::RecordingType;

struct RecordRequest {
  std::string file;
  session::RecordOptions options;
};

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

double secondsOf(const Recorded& recorded) { return std::chrono::duration<double>(recorded.length).count(); }

std::string amountOf(const Recorded& recorded) {
  return secondsText(secondsOf(recorded)) + ", " + bytesText(recorded.bytes);
}

Failure notStarted(const session::Failure& failure) {
  constexpr Duration longest = std::chrono::seconds(10);
  if (failure.cause() && failure == Errc::inCall) {
    return {*failure.cause(), "The recorder is in a call, and then records nothing else",
            "End the call first, or record it with -t call."};
  }
  if (failure.cause() && failure == Errc::notInCall) {
    return {*failure.cause(), "The recorder is not in a call",
            "Begin the call first, or record something else with -t."};
  }
  return explained(failure, longest);
}

Failure connectionLost(const Recorded& recorded) {
  return {
      ToolError::connectionLost,
      "Connection lost after " + secondsText(secondsOf(recorded)) + " (" + bytesText(recorded.bytes) + ").",
      recorded.file.string() + " holds what arrived; `kwt convert` makes a WAV or MP3 file of it."};
}

Failure unwritable(const session::Failure& failure, const Recorded& recorded) {
  return {ToolError::fileUnusable, sentenceOf(failure),
          "The recording was stopped; the file keeps its beginning (" + bytesText(recorded.bytes) +
              "). Free space on the disk or raise the limit, then record into another file."};
}

Failure notStopped(const session::Failure& failure, const Recorded& recorded) {
  const std::string text = "The recorder did not confirm the stop";
  const std::string hint = recorded.file.string() + " holds what arrived (" + amountOf(recorded) +
                           "). Look whether the recorder still records, and end that with its key.";
  if (failure.effect() != session::Effect::unknown)
    return {ToolError::stalled, "The recorder stopped sending.", hint};
  if (failure.cause()) return {*failure.cause(), text, hint};
  return {ToolError::notStopped, text + ".", hint};
}

void checkEnd(const session::Result<Recorded>& result) {
  if (result) return;
  const Recorded* const recorded = result.partial();
  if (recorded == nullptr) throw notStarted(result.error());
  if (result.error() == Errc::linkLost) throw connectionLost(*recorded);
  if (result.error() == Errc::fileUnusable) throw unwritable(result.error(), *recorded);
  throw notStopped(result.error(), *recorded);
}

void report(const session::Result<Recorded>& result, Output& output) {
  if (const Recorded* const recorded = result.achieved()) {
    output.set("bytes", recorded->bytes);
    output.set("seconds", secondsOf(*recorded));
  }
  checkEnd(result);
  const Ending ending = endingOf(result->end);
  output.set("ended", std::string(ending.word));
  if (result->bytes == 0) {
    throw Failure(ToolError::nothingRecorded, std::string("No sound arrived. ") + ending.text,
                  "Run the command again, for longer.");
  }
  output.line("Recorded " + result->file.string() + " (" + amountOf(*result) + "). " + ending.text);
}

/// The end of the recording, of which someone at a terminal sees length and level.
session::Result<Recorded> followed(const Environment& environment, const std::string& file,
                                   const session::Operation<Recorded>& recording) {
  constexpr Duration tick = std::chrono::milliseconds(100);
  RecordingLine line(*environment.scheduler);
  opus::RecordingMeter meter(file);
  while (line.visible() && !recording.waitFor(tick)) line.show(meter.read());
  line.clear();
  return recording.wait();
}

void record(const Environment& environment, const RecordRequest& request, Output& output) {
  checkOutput(request.file);
  if (fileSize(request.file) > 0) {
    throw Failure(ToolError::fileUnusable, "Cannot write " + request.file + ": it is not empty.",
                  "Name another file with -o; a recording never overwrites one.");
  }
  output.set("file", request.file);
  output.set("type", static_cast<std::int64_t>(request.options.type()));
  const auto recorder = openRecorder(environment);
  valueOf(recorder->battery(limitsOfQuery(environment)).wait());
  const auto recording = recorder->record(request.file, request.options, session::Limits().reconnects(0));
  const std::stop_callback onInterrupt(environment.stop,
                                       [&] { static_cast<void>(recorder->stopRecording()); });
  report(followed(environment, request.file, recording), output);
}

RecordingType typeOf(const std::string& text) {
  /// By the number that the recorder has for them.
  constexpr std::array<const char*, 5> types{"normal", "noise-reduced", "call", "media", "ambient"};
  for (std::size_t type = 0; type < types.size(); ++type) {
    if (text == types.at(type) || text == std::to_string(type)) return static_cast<RecordingType>(type);
  }
  throw UsageError("There is no type " + text +
                   ": -t takes normal, noise-reduced, call, media, ambient or 0 to 4");
}

Action prepareRecord(const Arguments& arguments) {
  constexpr Duration longest = std::chrono::seconds(1000000);
  require(!arguments.text("-o").empty(), "-o needs the name of a file");
  RecordRequest request{arguments.text("-o"), {}};
  if (arguments.has("-t")) request.options.type(typeOf(arguments.text("-t")));
  if (const auto length = arguments.duration("-d", longest)) request.options.length(*length);
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
