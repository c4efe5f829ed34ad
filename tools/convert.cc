#include <algorithm>
#include <filesystem>

#include <kwtsdk/files.h>
#include <kwtsdk/opus/conversion.h>

#include "tools/command_line.h"
#include "tools/terminal.h"

namespace kwtsdk::tool {
namespace {

constexpr std::int32_t kMp3BitRate = 24;  // kbit/s

struct ConvertRequest {
  std::string input, output;
  opus::Format format;
  bool replace;  // an output that exists
};

opus::Format formatOf(const std::string& file) {
  std::string extension = std::filesystem::path(file).extension();
  std::ranges::transform(extension, extension.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  require(extension == ".wav" || extension == ".mp3",
          "OUTPUT has to end in .wav or .mp3, which " + file + " does not");
  return extension == ".wav" ? opus::Format::wav : opus::Format::mp3;
}

/// Percent on a terminal; Ctrl-C cancels.
opus::ConversionResult convertWatched(const Environment& environment, const ConvertRequest& request) {
  TerminalLine line(*environment.scheduler);
  auto result =
      opus::convert(request.input, request.output, request.format, kMp3BitRate, [&](double fraction) {
        if (line.isDue()) line.show("Converting  " + std::to_string(static_cast<int>(fraction * 100)) + " %");
        return !environment.stop.stop_requested();
      });
  line.clear();
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

void convert(const Environment& environment, const ConvertRequest& request, Output& output) {
  if (!request.replace && fileIsExist(request.output)) {
    throw Failure(ToolError::fileUnusable, "Cannot write " + request.output + ": it exists already.",
                  "Name another file, or replace this one with --force.");
  }
  const opus::ConversionResult result = convertWatched(environment, request);
  if (result.status == opus::ConversionResult::kCancelled) {
    throw Failure(ToolError::interrupted, "Interrupted: nothing was written.", "Run the command again.");
  }
  if (result.status != opus::ConversionResult::kConverted) {
    throw Failure(ToolError::notConverted, result.text, "");
  }
  report(request, result, output);
}

Action prepareConvert(const Arguments& arguments) {
  const ConvertRequest request{arguments.text("input"), arguments.text("output"),
                               formatOf(arguments.text("output")), arguments.has("--force")};
  return [request](const Environment& environment, Output& output) { convert(environment, request, output); };
}

const RegisteredCommand kConvertCommand(
    {.place = 8,
     .name = "convert",
     .description = "Make a WAV or MP3 file (24 kbit/s) of a recording, live or downloaded",
     .recorder = Command::Recorder::none,
     .parameters =
         {{.name = "input", .valueName = "INPUT", .description = "The recording", .isRequired = true},
          {.name = "output",
           .valueName = "OUTPUT",
           .description = "File to write; its name ends in .wav or .mp3",
           .isRequired = true},
          {.name = "--force",
           .valueName = "",
           .description = "Replace the output if it exists",
           .kind = Parameter::Kind::flag}},
     .prepare = prepareConvert});

}  // namespace
}  // namespace kwtsdk::tool
