#include "tools/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <string>

#include <kwtsdk/bluez/device.h>

#include "tools/commands.h"

namespace kwtsdk::tool {
namespace {

constexpr int kUsage = 2;
constexpr const char* kFooter =
    "\nResults go to standard output, errors and (on a terminal) progress to standard error.\n"
    "With --json the result is one JSON object; after a failure its \"error\" holds domain, code, text and "
    "hint.\n"
    "Sizes are in bytes. Exit status: 0 success, 1 the recorder, Bluetooth or a file said no, or Ctrl-C "
    "came:\n"
    "a download can then be continued, an update starts again; 2 wrong usage. Ctrl-C is a good end of a "
    "scan\n"
    "and of a live recording. Its \"ended\" is \"host\" (Ctrl-C),\n"
    "\"time\", \"key\", \"call\" or \"recorder\".";

/// By the number that the library and the recorder have for them.
constexpr std::array<const char*, 5> kRecordTypes{"normal", "noise-reduced", "call", "media", "ambient"};

/// A usage error beyond what the parser knows; it is reported in the same way.
void require(bool condition, const std::string& message) {
  if (!condition) throw CLI::ValidationError(message);
}

std::int64_t recordTypeOf(const std::string& text) {
  for (std::size_t type = 0; type < kRecordTypes.size(); ++type) {
    if (text == kRecordTypes.at(type) || text == std::to_string(type)) return static_cast<std::int64_t>(type);
  }
  throw CLI::ValidationError("There is no type " + text +
                             ": -t takes normal, noise-reduced, call, media, ambient or 0 to 4");
}

Duration lengthOf(double seconds) {
  constexpr double longest = 1e6;
  require(seconds > 0 && seconds <= longest, "-d needs seconds, more than 0 and at most 1000000");
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

opus::Format formatOf(const std::string& file) {
  std::string extension = std::filesystem::path(file).extension();
  std::ranges::transform(extension, extension.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  require(extension == ".wav" || extension == ".mp3",
          "OUTPUT has to end in .wav or .mp3, which " + file + " does not");
  return extension == ".wav" ? opus::Format::wav : opus::Format::mp3;
}

void addOptions(CLI::App& app, Invocation& invocation) {
  app.set_version_flag("--version", "kwt " KWT_VERSION);
  app.add_option(
         "--sim", invocation.simulatedFolder,
         "Use a simulated recorder: the folder's Opus files are its recordings, and are deleted with them; "
         "it hears device/microphone.wav, or a melody")
      ->type_name("DIR");
  app.add_option("--device", invocation.device,
                 "Use the recorder of this Bluetooth address; `kwt scan` shows it")
      ->type_name("ADDRESS");
  app.add_flag("--json", invocation.json, "Print the result as JSON");
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
}

/// Where the parser puts the options of the commands.
struct Arguments {
  std::string file;
  std::string recordType = kRecordTypes.front();
  double seconds = 0, scanSeconds = 8;
  bool allDevices = false;
  ConvertRequest conversion;
};

Duration scanTimeOf(double seconds) {
  constexpr double longest = 3600;
  require(seconds > 0 && seconds <= longest, "-d needs seconds, more than 0 and at most 3600");
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

void addScan(CLI::App& app, Invocation& invocation, Arguments& arguments) {
  auto* const scan = app.add_subcommand("scan", "Show the recorders in Bluetooth range");
  scan->add_option("-d,--duration", arguments.scanSeconds, "Listen so many seconds (default: 8)")
      ->type_name("SECONDS");
  scan->add_flag("--all", arguments.allDevices, "Show every Bluetooth Low Energy device, recorder or not");
  scan->callback([&invocation, &arguments] {
    const ScanRequest request{scanTimeOf(arguments.scanSeconds), arguments.allDevices};
    invocation.command = [request](const Host& host, Output& output) { runScan(host, request, output); };
  });
}

void addPull(CLI::App& app, Invocation& invocation, Arguments& arguments) {
  auto* const pull = app.add_subcommand("pull", "Download the first recording; the recorder then deletes it");
  pull->add_option("-o,--output", arguments.file,
                   "File to write, continued where it ends if it exists (default: recording-ID-TIME.opus)")
      ->type_name("FILE");
  pull->callback([&invocation, &file = arguments.file, pull] {
    require(pull->count("-o") == 0 || !file.empty(), "-o needs the name of a file");
    invocation.command = [file](const Host& host, Output& output) { runPull(host, file, output); };
  });
}

void addRecord(CLI::App& app, Invocation& invocation, Arguments& arguments) {
  auto* const record =
      app.add_subcommand("record", "Record live into a file, until Ctrl-C, the recorder or the time ends it");
  record->add_option("-o,--output", arguments.file, "File to write: a new one, or one that is empty")
      ->type_name("FILE")
      ->required();
  record
      ->add_option("-t,--type", arguments.recordType,
                   "normal (0, the default), noise-reduced (1), call (2), media (3) or ambient (4)")
      ->type_name("TYPE");
  record->add_option("-d,--duration", arguments.seconds, "End it after so many seconds, such as 2.5")
      ->type_name("SECONDS");
  record->callback([&invocation, &arguments, record] {
    require(!arguments.file.empty(), "-o needs the name of a file");
    RecordRequest request{arguments.file, recordTypeOf(arguments.recordType), std::nullopt};
    if (record->count("-d") > 0) request.length = lengthOf(arguments.seconds);
    invocation.command = [request](const Host& host, Output& output) { runRecord(host, request, output); };
  });
}

void addUpdate(CLI::App& app, Invocation& invocation, Arguments& arguments) {
  auto* const update = app.add_subcommand(
      "update", "Install a firmware image; until all of it has arrived the recorder keeps its old firmware");
  update->add_option("image", arguments.file, "The image")->type_name("IMAGE")->required();
  update->callback([&invocation, &file = arguments.file] {
    invocation.command = [file](const Host& host, Output& output) { runUpdate(host, file, output); };
  });
}

void addConvert(CLI::App& app, Invocation& invocation, ConvertRequest& request) {
  auto* const convert =
      app.add_subcommand("convert", "Make a WAV or MP3 file (24 kbit/s) of a recording, live or downloaded");
  convert->add_option("input", request.input, "The recording")->type_name("INPUT")->required();
  convert->add_option("output", request.output, "File to write; its name ends in .wav or .mp3")
      ->type_name("OUTPUT")
      ->required();
  convert->add_flag("--force", request.replace, "Replace the output if it exists");
  convert->callback([&invocation, &request] {
    request.format = formatOf(request.output);
    invocation.command = [request](const Host& host, Output& output) { runConvert(host, request, output); };
  });
}

void addCommands(CLI::App& app, Invocation& invocation, Arguments& arguments) {
  const auto add = [&](const char* name, const char* description, auto run) {
    return app.add_subcommand(name, description)->callback([&invocation, run] { invocation.command = run; });
  };
  addScan(app, invocation, arguments);
  add("info", "Show battery level, firmware version and storage", runInfo);
  add("list", "List the recordings", runList);
  addPull(app, invocation, arguments);
  add("rm", "Delete the first recording on the recorder", runRemove);
  addRecord(app, invocation, arguments);
  addUpdate(app, invocation, arguments);
  addConvert(app, invocation, arguments.conversion);
  add("tour", "Show all of it with a fresh simulated recorder in a temporary folder", runTour);
}

void checkRecorder(const CLI::App& app, const Invocation& invocation) {
  const bool simulated = !invocation.simulatedFolder.empty(), device = app.count("--device") > 0;
  const bool isTour = app.got_subcommand("tour");
  require(!simulated || !device, "--sim and --device name two recorders: leave one out");
  require(!device || bluez::Device::isAddress(invocation.device),
          "--device needs an address such as 00:1A:7D:DA:71:13; `kwt scan` shows it");
  require(!isTour || !(simulated || device),
          "tour makes a recorder of its own: leave --sim and --device out");
  for (const char* const command : {"convert", "scan"}) {
    require(!app.got_subcommand(command) || !(simulated || device),
            std::string(command) + " needs no recorder: leave --sim and --device out");
    if (app.got_subcommand(command)) return;
  }
  require(isTour || simulated || device, "No recorder named: add --sim DIR or --device ADDRESS");
}

}  // namespace

std::variant<Invocation, int> parseCommandLine(int argc, char** argv) {
  Invocation invocation;
  Arguments arguments;
  CLI::App app("Operates a portable voice recorder over Bluetooth Low Energy.", "kwt");
  addOptions(app, invocation);
  addCommands(app, invocation, arguments);
  try {
    app.parse(argc, argv);
    checkRecorder(app, invocation);
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : kUsage;
  }
  return invocation;
}

}  // namespace kwtsdk::tool
