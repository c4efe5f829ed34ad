#include <atomic>
#include <memory>

#include <kwtsdk/files.h>

#include "tools/commands.h"
#include "tools/terminal_line.h"
#include "tools/text.h"

namespace kwtsdk::tool {
namespace {

constexpr std::int32_t kMp3BitRate = 24;  // kbit/s

/// Percent on a terminal; Ctrl-C cancels.
opus::ConversionResult convertWatched(const Host& host, const ConvertRequest& request) {
  const auto cancelled = std::make_shared<std::atomic<bool>>(false);
  host.interrupt.setAction([cancelled] { *cancelled = true; });
  TerminalLine line(*host.scheduler);
  auto result =
      opus::convert(request.input, request.output, request.format, kMp3BitRate, [&](double fraction) {
        if (line.isDue()) line.show("Converting  " + std::to_string(static_cast<int>(fraction * 100)) + " %");
        return !*cancelled;
      });
  line.clear();
  host.interrupt.setAction(nullptr);
  return result;
}

void report(const ConvertRequest& request, const opus::ConversionResult& result, Output& output) {
  const bool isLive = result.source == opus::Source::liveRecording;
  const double seconds = static_cast<double>(result.frames) / result.sampleRate;
  const std::uint64_t damaged = result.damagedPackets;
  output.line(std::string("Converted ")
                  .append(isLive ? "a live recording" : "a recording from the store (Ogg Opus)")
                  .append(", " + request.input + ", to " + request.output + " (" + secondsText(seconds))
                  .append(" at " + std::to_string(result.sampleRate) + " Hz)."));
  if (damaged > 0) {
    output.line(std::to_string(damaged) +
                (damaged == 1 ? " damaged packet or gap was" : " damaged packets or gaps were") +
                " concealed or left out.");
  }
  output.set("input", request.input);
  output.set("output", request.output);
  output.set("source", std::string(isLive ? "live" : "ogg-opus"));
  output.set("seconds", seconds);
  output.set("sampleRate", std::int64_t{result.sampleRate});
  output.set("damagedPackets", damaged);
}

}  // namespace

void runConvert(const Host& host, const ConvertRequest& request, Output& output) {
  if (!request.replace && fileIsExist(request.output)) {
    throw Failure(ToolError::fileUnusable, "Cannot write " + request.output + ": it exists already.",
                  "Name another file, or replace this one with --force.");
  }
  const opus::ConversionResult result = convertWatched(host, request);
  if (result.status == opus::ConversionResult::kCancelled) {
    throw Failure(ToolError::interrupted, "Interrupted: nothing was written.", "Run the command again.");
  }
  if (result.status != opus::ConversionResult::kConverted) {
    throw Failure(ToolError::notConverted, result.text, "");
  }
  report(request, result, output);
}

}  // namespace kwtsdk::tool
