#include "tools/command_line.h"

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <map>
#include <sstream>

#include "tools/nearest.h"

namespace kwtsdk::tool {
namespace {

constexpr const char* kCommonGroup = "Options of every command";
constexpr const char* kFooter =
    "\n`kwt COMMAND --help` tells about one. Results go to standard output, errors and (on a terminal)\n"
    "progress to standard error.\n"
    "Without --device: KWT_DEVICE in the environment, or what `kwt device` has written to\n"
    "~/.config/kwt/config, or else the only recorder in range.\n"
    "Exit status: 0 success; 2 wrong usage; 69 no Bluetooth on this machine; 75 link lost or time over:\n"
    "try again; 1 everything else.";
constexpr const char* kFooterOfCommand =
    "\nEvery command also takes --device, --sim, --json, -v and others, which `kwt --help` lists.";

std::vector<Command>& commands() {
  static std::vector<Command> all;
  return all;
}

/// The texts of a command line's options, until they are understood.
struct Words {
  std::string progress;
  double seconds = 0;
};

void addRecorder(CLI::App& app, Invocation& invocation) {
  app.add_option("--device", invocation.device,
                 "The recorder of this Bluetooth address or name; `kwt scan` shows them")
      ->type_name("ADDRESS|NAME");
  app.add_option("--adapter", invocation.adapter, "The Bluetooth adapter, such as hci0")->type_name("NAME");
  app.add_option(
         "--sim", invocation.simulatedFolder,
         "A simulated recorder: the folder's Opus files are its recordings, and are deleted with them; it "
         "hears device/microphone.wav, or a melody")
      ->type_name("DIR");
}

void addOptions(CLI::App& app, Invocation& invocation, Words& words) {
  app.option_defaults()->group(kCommonGroup);
  app.set_help_flag("-h,--help", "Print this and end")->group(kCommonGroup);
  app.set_version_flag("--version", "kwt " KWT_VERSION, "Print the version and end")->group(kCommonGroup);
  addRecorder(app, invocation);
  app.add_flag("--json", invocation.json, "Print the result as one JSON object; docs/kwt.md has its fields");
  app.add_option("--progress", words.progress, "Where progress goes; json: one object a line")
      ->type_name("auto|none|json");
  app.add_flag("-q,--quiet", invocation.quiet, "Print errors and what was asked for, nothing else");
  app.add_flag("-v,--verbose", invocation.verbose, "Print what is sent and received");
  app.add_option("--timeout", words.seconds, "End after so many seconds, as Ctrl-C does")
      ->type_name("SECONDS");
  app.add_option("--trace", invocation.trace, "Write what passes the link to a new btsnoop file")
      ->type_name("FILE");
  app.footer(kFooter);
  app.get_formatter()->label("SUBCOMMAND", "COMMAND");
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
    case Parameter::Kind::texts:
      return app.add_option(parameter.name, value.texts, parameter.description)
          ->type_name(parameter.valueName);
    default:
      return app.add_option(parameter.name, value.text, parameter.description)
          ->type_name(parameter.valueName);
  }
}

void addCommand(CLI::App& app, const Command& command, Arguments& arguments, Invocation& invocation) {
  auto* const added = app.add_subcommand(command.name, command.description);
  added->group("Commands");
  added->footer(kFooterOfCommand);
  added->option_defaults()->group("Options");
  added->set_help_flag("-h,--help", "Print this and end")->group("Options");
  for (const Parameter& parameter : command.parameters) {
    addParameter(*added, parameter, arguments[parameter])->required(parameter.isRequired);
  }
  added->callback([&command, &arguments, &invocation, added] {
    for (const Parameter& parameter : command.parameters) {
      arguments[parameter].isGiven = added->count(arguments.nameOf(parameter)) > 0;
    }
    invocation.action = command.prepare(arguments);
    invocation.isQuestion = command.isQuestion;
  });
}

/// Whether the command line names at most one recorder, and none where the command needs none.
void checkRecorder(const Command& command, const CLI::App& app, const Invocation& invocation) {
  const bool simulated = app.count("--sim") > 0, device = app.count("--device") > 0;
  require(!simulated || !device, "--sim and --device name two recorders: leave one out");
  require(!device || !invocation.device.empty(),
          "--device needs an address such as 00:1A:7D:DA:71:13, or a name; `kwt scan` shows them");
  require(!simulated || !invocation.simulatedFolder.empty(), "--sim needs the name of a folder");
  if (command.recorder == Command::Recorder::named) return;
  const char* const reason =
      command.recorder == Command::Recorder::none ? " needs no recorder" : " makes a recorder of its own";
  require(!(simulated || device), std::string(command.name) + reason + ": leave --sim and --device out");
}

void understand(const Words& words, const CLI::App& app, Invocation& invocation) {
  const std::map<std::string, ProgressMode> modes{
      {"auto", ProgressMode::automatic}, {"none", ProgressMode::none}, {"json", ProgressMode::json}};
  if (app.count("--progress") > 0) {
    require(modes.contains(words.progress), "--progress takes auto, none or json");
    invocation.progress = modes.at(words.progress);
  }
  if (app.count("--timeout") > 0) {
    constexpr double longest = 1e6;
    require(words.seconds > 0 && words.seconds <= longest,
            "--timeout needs seconds, more than 0 and at most 1000000");
    invocation.seconds = words.seconds;
  }
  require(app.count("--trace") == 0 || !invocation.trace.empty(), "--trace needs the name of a file");
}

int wrongUsage(const std::string& what, bool json) {
  Output output(json);
  output.fail(
      {ToolError::usage, what, "`kwt --help` shows the commands, `kwt COMMAND --help` their options."});
  return output.finish();
}

/// Lines that a terminal would break anywhere, broken between words: those of options stay in their column,
/// or in a narrow terminal below the option.
std::string wrapped(const std::string& text, std::size_t width) {
  constexpr std::size_t column = 30, narrowColumn = 6;
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    const bool isOption = line.starts_with("  ") && line.size() > column, isNarrow = width <= 2 * column;
    const std::string indent(isOption ? isNarrow ? narrowColumn : column : 0, ' ');
    if (isOption && isNarrow && line[column - 1] == ' ') {
      result += line.substr(0, line.find_last_not_of(' ', column - 1) + 1) + '\n';
      line.replace(0, column, indent);
    }
    while (line.size() > width) {
      const std::size_t space = line.rfind(' ', width);
      if (space == std::string::npos || space <= indent.size()) break;
      result += line.substr(0, space) + '\n';
      line.replace(0, space + 1, indent);
    }
    result += line + '\n';
  }
  return result;
}

/// What the parser says of it, or, of a word that is no command, what may have been meant.
std::string explanationOf(const CLI::ParseError& error, const CLI::App& app) {
  const auto rest = app.remaining();
  const auto found = std::ranges::find_if(rest, [](const auto& word) { return !word.starts_with('-'); });
  if (!app.get_subcommands().empty()) return error.what();
  if (found == rest.end()) return rest.empty() ? "No command was given" : error.what();
  std::vector<std::string> names;
  for (const Command& command : commands()) names.emplace_back(command.name);
  std::string meant;
  for (const std::string& name : nearestTo(*found, names)) meant += (meant.empty() ? "" : " or ") + name;
  return "There is no command " + printable(*found) + (meant.empty() ? "" : "; did you mean " + meant + "?");
}

int printed(const CLI::ParseError& help, const CLI::App& app) {
  std::ostringstream text;
  app.exit(help, text, text);
  const auto width = terminalColumns(STDOUT_FILENO);
  std::cout << (width ? wrapped(text.str(), *width) : text.str());
  return Output(false).finish();
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
  // Of words that cannot be parsed, too, a program wants an object.
  const bool json = std::ranges::find(words, "--json") != words.end();
  Invocation invocation;
  Words texts;
  std::vector<Arguments> arguments(commands().size());
  CLI::App app("Operates a portable voice recorder over Bluetooth Low Energy.", "kwt");
  addOptions(app, invocation, texts);
  for (std::size_t i = 0; i < commands().size(); ++i)
    addCommand(app, commands()[i], arguments[i], invocation);
  try {
    std::ranges::reverse(words);  // as the parser takes them
    app.parse(std::move(words));
    for (const Command& command : commands()) {
      if (app.got_subcommand(command.name)) checkRecorder(command, app, invocation);
    }
    understand(texts, app, invocation);
  } catch (const UsageError& error) {
    return wrongUsage(error.what(), json);
  } catch (const CLI::Success& help) {
    return printed(help, app);
  } catch (const CLI::ParseError& error) {
    return wrongUsage(explanationOf(error, app), json);
  }
  return invocation;
}

}  // namespace kwtsdk::tool
