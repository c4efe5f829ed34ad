#include "tools/record_outcome.h"

#include <unistd.h>

#include <chrono>
#include <iostream>

#include "tools/failure.h"

namespace kwtsdk::tool {
namespace {

using session::Errc;
using session::Recorded;
using session::RecordingEnd;

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

/// Where what arrived is.
std::string keptText(const RecordRequest& request) {
  if (request.isPiped()) return "What arrived has been written.";
  return request.file + " holds what arrived" +
         (request.format ? ", and plays." : "; `kwt convert` makes a WAV or MP3 file of it.");
}

Failure connectionLost(const RecordRequest& request, const Recorded& recorded) {
  if (::isatty(STDERR_FILENO) == 1) std::cerr << '\a' << std::flush;
  return {
      ToolError::connectionLost,
      "Connection lost after " + secondsText(secondsOf(recorded)) + " (" + bytesText(recorded.bytes) + ").",
      keptText(request)};
}

Failure unwritable(const std::string& text, std::uint64_t bytes) {
  return {ToolError::fileUnusable, text,
          "The recording was stopped; the file keeps its beginning (" + bytesText(bytes) +
              "). Free space on the disk or raise the limit, then record into another file."};
}

Failure notStopped(const session::Failure& failure, const RecordRequest& request, const Recorded& recorded) {
  const std::string text = "The recorder did not confirm the stop";
  const std::string hint = "It recorded " + amountOf(recorded) + ". " + keptText(request) +
                           " Look whether the recorder still records, and end that with its key.";
  if (failure.effect() != session::Effect::unknown)
    return {ToolError::stalled, "The recorder stopped sending.", hint};
  if (failure.cause()) return {*failure.cause(), text, hint};
  return {ToolError::notStopped, text + ".", hint};
}

void checkEnd(const RecordRequest& request, const RecordOutcome& outcome) {
  const auto& result = outcome.result;
  const Recorded* const recorded = result.achieved();
  if (recorded == nullptr) throw notStarted(result.error());
  if (outcome.unwritten && !outcome.isReaderGone) throw unwritable(*outcome.unwritten, recorded->bytes);
  if (result) return;
  if (result.error() == Errc::linkLost) throw connectionLost(request, *recorded);
  if (result.error() == Errc::fileUnusable) throw unwritable(sentenceOf(result.error()), recorded->bytes);
  throw notStopped(result.error(), request, *recorded);
}

}  // namespace

void reportRecording(const RecordRequest& request, const RecordOutcome& outcome, Output& output) {
  const Recorded* const recorded = outcome.result.achieved();
  if (recorded != nullptr) {
    output.set("bytes", recorded->bytes);
    output.set("seconds", secondsOf(*recorded));
  }
  checkEnd(request, outcome);
  const Ending ending =
      outcome.isReaderGone ? Ending{"Its reader ended it.", "reader"} : endingOf(recorded->end);
  output.set("ended", std::string(ending.word));
  if (recorded->bytes == 0) {
    throw Failure(ToolError::nothingRecorded, std::string("No sound arrived. ") + ending.text,
                  "Run the command again, for longer.");
  }
  output.line("Recorded " + (request.isPiped() ? "to standard output" : request.file) + " (" +
              amountOf(*recorded) + "). " + ending.text);
}

}  // namespace kwtsdk::tool
