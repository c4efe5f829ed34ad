#include "tools/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <iostream>

#include <kwtsdk/bluez/device.h>

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

std::vector<Command>& commands() {
  static std::vector<Command> all;
  return all;
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

CLI::Option* addParameter(CLI::App& app, const Parameter& parameter, Arguments::Value& value) {
  switch (parameter.kind) {
    case Parameter::Kind::flag:
      return app.add_flag(parameter.name, value.isGiven, parameter.description);
    case Parameter::Kind::seconds:
      return app.add_option(parameter.name, value.seconds, parameter.description)
          ->type_name(parameter.valueName);
    default:
      return app.add_option(parameter.name, value.text, parameter.description)
          ->type_name(parameter.valueName);
  }
}

void addCommand(CLI::App& app, const Command& command, Arguments& arguments, Invocation& invocation) {
  auto* const added = app.add_subcommand(command.name, command.description);
  for (const Parameter& parameter : command.parameters) {
    addParameter(*added, parameter, arguments[parameter])->required(parameter.isRequired);
  }
  added->callback([&command, &arguments, &invocation, added] {
    for (const Parameter& parameter : command.parameters) {
      arguments[parameter].isGiven = added->count(arguments.nameOf(parameter)) > 0;
    }
    invocation.action = command.prepare(arguments);
  });
}

/// Whether the command line names a recorder, and one, exactly when the command needs it.
void checkRecorder(const Command& command, const Invocation& invocation, bool device) {
  const bool simulated = !invocation.simulatedFolder.empty();
  require(!simulated || !device, "--sim and --device name two recorders: leave one out");
  require(!device || bluez::Device::isAddress(invocation.device),
          "--device needs an address such as 00:1A:7D:DA:71:13; `kwt scan` shows it");
  if (command.recorder == Command::Recorder::named) {
    return require(simulated || device, "No recorder named: add --sim DIR or --device ADDRESS");
  }
  const char* const reason =
      command.recorder == Command::Recorder::none ? " needs no recorder" : " makes a recorder of its own";
  require(!(simulated || device), std::string(command.name) + reason + ": leave --sim and --device out");
}

}  // namespace

std::string Arguments::nameOf(const Parameter& parameter) {
  const std::string names = parameter.name;
  return names.substr(0, names.find(','));
}

std::optional<Duration> Arguments::duration(const char* name, Duration longest) const {
  if (!has(name)) return std::nullopt;
  const double seconds = values_.at(name).seconds;
  const auto most = std::chrono::duration_cast<std::chrono::seconds>(longest).count();
  require(seconds > 0 && seconds <= static_cast<double>(most),
          std::string(name) + " needs seconds, more than 0 and at most " + std::to_string(most));
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

void require(bool condition, const std::string& message) {
  if (!condition) throw UsageError(message);
}

RegisteredCommand::RegisteredCommand(Command command) { commands().push_back(std::move(command)); }

std::variant<Invocation, int> parseCommandLine(std::vector<std::string> words) {
  std::ranges::sort(commands(), {}, &Command::place);
  Invocation invocation;
  std::vector<Arguments> arguments(commands().size());
  CLI::App app("Operates a portable voice recorder over Bluetooth Low Energy.", "kwt");
  addOptions(app, invocation);
  for (std::size_t i = 0; i < commands().size(); ++i)
    addCommand(app, commands()[i], arguments[i], invocation);
  try {
    std::ranges::reverse(words);  // as the parser takes them
    app.parse(std::move(words));
    for (const Command& command : commands()) {
      if (app.got_subcommand(command.name)) checkRecorder(command, invocation, app.count("--device") > 0);
    }
  } catch (const UsageError& error) {
    return app.exit(CLI::ValidationError(error.what()), std::cout, std::cerr) == 0 ? 0 : kUsage;
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : kUsage;
  }
  return invocation;
}

}  // namespace kwtsdk::tool
