#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <optional>
#include <set>

#include <kwtsdk/files.h>
#include <kwtsdk/opus/conversion.h>

#include "tools/command_line.h"
#include "tools/sound_file.h"
#include "tools/standard_streams.h"
#include "tools/terminal.h"

namespace kwtsdk::tool {
namespace {

namespace fs = std::filesystem;

struct Conversion {
  std::string input, output;  // or kStandardStream
};

struct ConvertRequest {
  std::vector<Conversion> conversions;
  opus::Format format = opus::Format::mp3;
  std::int32_t kilobitsPerSecond = 24;
  bool replace = false;  // an output that exists

  const char* extension() const { return format == opus::Format::wav ? ".wav" : ".mp3"; }
};

/// Percent on a terminal; Ctrl-C cancels.
opus::ConversionResult convertWatched(const Environment& environment, const ConvertRequest& request,
                                      const Conversion& files) {
  TerminalLine line(*environment.scheduler);
  auto result = opus::convert(
      files.input, files.output, request.format, request.kilobitsPerSecond, [&](double fraction) {
        if (line.isDue()) line.show("Converting  " + std::to_string(static_cast<int>(fraction * 100)) + " %");
        return !environment.stop.stop_requested();
      });
  line.clear();
  return result;
}

Failure interrupted() {
  return {ToolError::interrupted, "Interrupted: nothing was written.", "Run the command again."};
}

/// Between standard streams through temporary files: the beginning of what is made tells of its end.
opus::ConversionResult convertFiles(const Environment& environment, const ConvertRequest& request,
                                    const Conversion& files, int standardOutput) {
  const bool isRead = files.input == kStandardStream, isPrinted = files.output == kStandardStream;
  if (!isRead && !isPrinted) return convertWatched(environment, request, files);
  const TemporaryFolder folder;
  const Conversion kept{isRead ? folder.file("standard input") : files.input,
                        isPrinted ? folder.file("standard output") : files.output};
  if (isRead && !saveStandardInput(kept.input, environment.stop)) throw interrupted();
  auto result = convertWatched(environment, request, kept);
  const std::size_t at = result.text.find(folder.file(""));
  if (at != std::string::npos) result.text.erase(at, folder.file("").size());
  if (isPrinted && result.status == opus::ConversionResult::kConverted)
    printFile(kept.output, standardOutput);
  return result;
}

std::string shown(const std::string& file, const char* stream) {
  return file == kStandardStream ? stream : file;
}

Record reported(const Conversion& files, const opus::ConversionResult& result, Output& output) {
  const bool isLive = result.source == opus::Source::liveRecording;
  const double seconds = static_cast<double>(result.frames) / result.sampleRate;
  const std::uint64_t damaged = result.damagedPackets;
  output.line(std::string("Converted ")
                  .append(isLive ? "a live recording" : "an Ogg Opus recording")
                  .append(", " + shown(files.input, "standard input") + ", to ")
                  .append(shown(files.output, "standard output") + " (" + secondsText(seconds))
                  .append(" at " + std::to_string(result.sampleRate) + " Hz)."));
  if (damaged > 0) {
    output.line(std::to_string(damaged) +
                (damaged == 1 ? " damaged packet, page or gap was" : " damaged packets, pages or gaps were") +
                " concealed or left out.");
  }
  return {{"input", files.input},
          {"output", files.output},
          {"source", std::string(isLive ? "live" : "ogg-opus")},
          {"seconds", seconds},
          {"sampleRate", std::int64_t{result.sampleRate}},
          {"damagedPackets", damaged}};
}

Record converted(const Environment& environment, const ConvertRequest& request, const Conversion& files,
                 int standardOutput, Output& output) {
  if (!request.replace && files.output != kStandardStream && fileIsExist(files.output)) {
    throw Failure(ToolError::fileUnusable, "Cannot write " + files.output + ": it exists already.",
                  "Name another file, or replace this one with --force.");
  }
  const opus::ConversionResult result = convertFiles(environment, request, files, standardOutput);
  if (result.status == opus::ConversionResult::kCancelled) throw interrupted();
  if (result.status != opus::ConversionResult::kConverted)
    throw Failure(ToolError::notConverted, result.text, "");
  return reported(files, result, output);
}

/// Goes on behind an input that cannot be converted.
void convertAll(const Environment& environment, const ConvertRequest& request, Output& output) {
  std::vector<Record> records;
  std::size_t failed = 0;
  for (const Conversion& files : request.conversions) {
    if (environment.stop.stop_requested()) break;
    try {
      records.push_back(converted(environment, request, files, -1, output));
    } catch (const Failure& failure) {
      ++failed;
      output.fail(failure);
      records.push_back(
          {{"input", files.input}, {"output", files.output}, {"error", std::string(failure.what())}});
    }
  }
  output.setList("conversions", records);
  const std::string of = " of " + std::to_string(request.conversions.size()) + " recordings ";
  if (environment.stop.stop_requested()) {
    throw Failure(ToolError::interrupted,
                  "Interrupted: " + std::to_string(records.size() - failed) + of + "are converted.",
                  "Run the command again with the others.");
  }
  if (failed > 0) {
    throw Failure(ToolError::notConverted,
                  std::to_string(failed) + of + (failed == 1 ? "was" : "were") + " not converted.",
                  "What is said of each stands above.");
  }
}

void convert(const Environment& environment, const ConvertRequest& request, Output& output) {
  if (request.conversions.size() > 1) return convertAll(environment, request, output);
  const Conversion& files = request.conversions.front();
  const int standardOutput = files.output == kStandardStream ? takeStandardOutput() : -1;
  for (const auto& [key, value] : converted(environment, request, files, standardOutput, output))
    output.set(key, value);
}

std::optional<opus::Format> formatNamed(const std::string& name) {
  if (name == "wav" || name == ".wav") return opus::Format::wav;
  if (name == "mp3" || name == ".mp3") return opus::Format::mp3;
  return std::nullopt;
}

std::int32_t bitRateOf(const std::string& text) {
  std::int32_t rate = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), rate);
  require(
      error == std::errc() && end == text.data() + text.size() && opus::isMp3BitRate(rate),
      "--bitrate takes kbit/s that MP3 knows: 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144 or 160");
  return rate;
}

/// For each input the output beside it, or in the folder, or the one that was named.
std::vector<Conversion> conversionsOf(const std::vector<std::string>& inputs, const std::string& output,
                                      const std::string& extension) {
  std::error_code ignored;
  const bool isFolder = fs::is_directory(output, ignored);
  require(isFolder || inputs.size() == 1 || output.empty(),
          "-o has to be a folder that exists for more than one input, which " + output + " is not");
  std::vector<Conversion> conversions;
  std::set<fs::path> outputs;
  for (const std::string& input : inputs) {
    const bool isStream = input == kStandardStream;
    require(!isStream || (inputs.size() == 1 && !isFolder),
            "- for standard input stands alone, and -o names a file");
    std::string file = output;
    const fs::path name = fs::path(input).stem().string() + extension;
    if (output.empty()) file = isStream ? kStandardStream : fs::path(input).replace_filename(name).string();
    if (isFolder) file = (fs::path(output) / name).string();
    require(file == kStandardStream || outputs.insert(file).second, "Two inputs would become " + file);
    conversions.push_back({input, file});
  }
  return conversions;
}

Action prepareConvert(const Arguments& arguments) {
  std::vector<std::string> inputs = arguments.texts("input");
  require(!arguments.has("-o") || !arguments.text("-o").empty(), "-o needs the name of a file or folder");
  std::string output = arguments.text("-o");
  if (output.empty() && inputs.size() == 2 && formatNamed(extensionOf(inputs.back()))) {
    output = inputs.back();
    inputs.pop_back();
  }
  ConvertRequest request;
  const auto wanted = formatNamed(arguments.text("--to")), named = formatNamed(extensionOf(output));
  require(!arguments.has("--to") || wanted, "--to takes wav or mp3");
  std::error_code ignored;
  const bool isFile = !output.empty() && output != kStandardStream && !fs::is_directory(output, ignored);
  require(!isFile || inputs.size() > 1 || (named && named == wanted.value_or(*named)),
          "-o has to name a folder or a file that ends in .wav or .mp3, as --to says, which " + output +
              " does not");
  request.format = wanted.value_or(named.value_or(opus::Format::mp3));
  request.replace = arguments.has("--force");
  require(!arguments.has("--bitrate") || request.format == opus::Format::mp3,
          "--bitrate is for MP3: leave it out, or add --to mp3");
  if (arguments.has("--bitrate")) request.kilobitsPerSecond = bitRateOf(arguments.text("--bitrate"));
  request.conversions = conversionsOf(inputs, output, request.extension());
  if (request.conversions.front().output == kStandardStream) requirePipedOutput();
  require(inputs.front() != kStandardStream || ::isatty(STDIN_FILENO) == 0,
          "- is standard input, which is a terminal: name a recording, or send one there");
  return
      [request](const Environment& environment, Output& printed) { convert(environment, request, printed); };
}

const RegisteredCommand kConvertCommand(
    {.place = 8,
     .name = "convert",
     .description = "Make WAV or MP3 files of recordings, live or downloaded",
     .recorder = Command::Recorder::none,
     .parameters =
         {{.name = "input",
           .valueName = "INPUT...",
           .description =
               "Recordings; - for standard input. Of two the second may be the output, if it ends in .wav or "
               ".mp3",
           .kind = Parameter::Kind::texts,
           .isRequired = true},
          {"-o,--output", "FILE|DIR",
           "File or folder to write, - for standard output (default: beside the input)"},
          {"--to", "wav|mp3", "What to make (default: as the output's name ends, or mp3)"},
          {"--bitrate", "KBIT/S", "Of MP3, 8 to 160 (default: 24)"},
          {.name = "--force",
           .valueName = "",
           .description = "Replace the output if it exists",
           .kind = Parameter::Kind::flag}},
     .prepare = prepareConvert});

}  // namespace
}  // namespace kwtsdk::tool
