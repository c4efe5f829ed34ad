#include "tools/command_line.h"

#include <CLI/CLI.hpp>

#include <iostream>

#include "tools/commands.h"

namespace kwtsdk::tool {
namespace {

constexpr int kUsage = 2;
constexpr const char* kFooter =
    "\nResults go to standard output, errors and (on a terminal) progress to standard error.\n"
    "With --json the result is one JSON object; after a failure its \"error\" holds domain, code, text and "
    "hint.\n"
    "Sizes are in bytes. Exit status: 0 success, 1 the recorder or a file said no, or Ctrl-C stopped a\n"
    "download, which then can be continued, 2 wrong usage.";

/// A usage error beyond what the parser knows; it is reported in the same way.
void require(bool condition, const std::string& message) {
  if (!condition) throw CLI::ValidationError(message);
}

void addOptions(CLI::App& app, Invocation& invocation) {
  app.set_version_flag("--version", "kwt " KWT_VERSION);
  app.add_option(
         "--sim", invocation.simulatedFolder,
         "Use a simulated recorder: the folder's Opus files are its recordings, and are deleted with them")
      ->type_name("DIR");
  app.add_flag("--json", invocation.json, "Print the result as JSON");
  app.footer(kFooter);
  app.require_subcommand(1);
  app.fallthrough();
}

/// `file` is where the parser puts the option of pull.
void addCommands(CLI::App& app, Invocation& invocation, std::string& file) {
  const auto add = [&](const char* name, const char* description, auto run) {
    return app.add_subcommand(name, description)->callback([&invocation, run] { invocation.command = run; });
  };
  add("info", "Show battery level, firmware version and storage", runInfo);
  add("list", "List the recordings", runList);
  auto* const pull = app.add_subcommand("pull", "Download the first recording; the recorder then deletes it");
  pull->add_option("-o,--output", file,
                   "File to write, continued where it ends if it exists (default: recording-ID-TIME.opus)")
      ->type_name("FILE");
  pull->callback([&invocation, &file, pull] {
    require(pull->count("-o") == 0 || !file.empty(), "-o needs the name of a file");
    invocation.command = [file](const Host& host, Output& output) { runPull(host, file, output); };
  });
  add("rm", "Delete the first recording on the recorder", runRemove);
  add("tour", "Show all of it with a fresh simulated recorder in a temporary folder", runTour);
}

}  // namespace

std::variant<Invocation, int> parseCommandLine(int argc, char** argv) {
  Invocation invocation;
  std::string file;
  CLI::App app("Operates a portable voice recorder over Bluetooth Low Energy.", "kwt");
  addOptions(app, invocation);
  addCommands(app, invocation, file);
  try {
    app.parse(argc, argv);
    const bool isTour = app.got_subcommand("tour");
    require(isTour || !invocation.simulatedFolder.empty(), "No recorder named: add --sim DIR");
    require(!isTour || invocation.simulatedFolder.empty(),
            "tour makes a recorder of its own: leave --sim out");
  } catch (const CLI::ParseError& error) {
    return app.exit(error, std::cout, std::cerr) == 0 ? 0 : kUsage;
  }
  return invocation;
}

}  // namespace kwtsdk::tool
