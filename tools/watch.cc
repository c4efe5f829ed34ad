#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include <kwtsdk/bluez/problem.h>

#include "tools/harvest.h"
#include "tools/hook.h"

namespace kwtsdk::tool {
namespace {

struct WatchRequest {
  HarvestRequest harvest;
  std::string command;  // "": none
  Duration pause;       // between two looks
};

/// A recorder that is not there now, or is out of reach by now.
bool isAway(const Failure& failure) {
  constexpr std::array<bluez::Problem, 4> problems{bluez::Problem::deviceNotFound,
                                                   bluez::Problem::noConnection, bluez::Problem::noServices,
                                                   bluez::Problem::connectionLost};
  if (failure.domain() == "kwt" && failure.code() == static_cast<std::int64_t>(ToolError::notHeard))
    return true;
  return failure.domain() == bluez::kDomain && std::ranges::any_of(problems, [&](bluez::Problem problem) {
           return failure.code() == static_cast<std::int64_t>(problem);
         });
}

class Watch {
 public:
  Watch(const Environment& environment, WatchRequest request, Output& output)
      : environment_(environment), request_(std::move(request)), output_(output) {}

  void run() {
    const auto awake = environment_.scheduler->semaphore("kwt.watch");
    const std::stop_callback onStop(environment_.stop, [awake] { awake->signal(); });
    TerminalLine line(*environment_.scheduler);
    for (look(); !environment_.stop.stop_requested() && !output_.isBroken(); look()) {
      line.show("Waiting for the recorder. Ctrl-C ends it.");
      awake->wait(request_.pause);
      line.clear();
    }
    output_.set("saved", saved_);
  }

 private:
  /// A recorder for this time only: between two looks others may have it, and its battery lasts longer.
  void look() {
    Harvested harvested;
    try {
      const auto recorder = openRecorder(environment_);
      harvested = harvest(environment_, *recorder, request_.harvest,
                          [this](const Delivered& delivered) { tell(delivered); });
    } catch (const Failure& failure) {
      harvested.failure = failure;
    } catch (const std::exception& exception) {
      harvested.failure = Failure(ToolError::other, exception.what(), "");
    }
    for (const Delivered& delivered : harvested.delivered) finish(delivered);
    if (!environment_.stop.stop_requested()) tell(harvested.failure);
  }

  void tell(const Delivered& delivered) {
    ++saved_;
    output_.entry(recordOf(delivered));
    output_.line(textOf(delivered));
  }

  /// Once, however often it is met.
  void tell(const std::optional<Failure>& failure) {
    const std::string text = failure && !isAway(*failure) ? failure->what() : "";
    if (text != told_ && !text.empty()) {
      std::cerr << "kwt: " << text << "\nkwt: It goes on when that is over; Ctrl-C ends it.\n";
    }
    told_ = text;
  }

  void finish(const Delivered& delivered) {
    const std::string file = delivered.file.string();
    if (!delivered.notConverted.empty()) std::cerr << "kwt: " << delivered.notConverted << '\n';
    if (request_.command.empty()) return;
    const std::string problem = environment_.stop.stop_requested()
                                    ? "it was not started any more"
                                    : runHook(environment_, request_.command, delivered, output_.json());
    if (!problem.empty()) std::cerr << "kwt: The command for " << file << ": " << problem << ".\n";
  }

  const Environment& environment_;
  const WatchRequest request_;
  Output& output_;
  std::uint64_t saved_ = 0;
  std::string told_;
};

Action prepareWatch(const Arguments& arguments) {
  constexpr Duration usual = std::chrono::seconds(30), longest = std::chrono::hours(24);
  require(!arguments.has("-o") || !arguments.text("-o").empty(), "-o needs the name of a folder");
  require(!arguments.has("--exec") || !arguments.text("--exec").empty(), "--exec needs a command");
  const Naming naming(arguments);
  const Duration pause = arguments.duration("--every", longest).value_or(usual);
  const WatchRequest prepared{{{}, naming, false}, arguments.text("--exec"), pause};
  return [prepared, folder = arguments.text("-o")](const Environment& environment, Output& output) {
    WatchRequest request = prepared;
    request.harvest.folder = harvestFolder(environment, folder);
    Watch(environment, request, output).run();
  };
}

const RegisteredCommand kWatchCommand(
    {.place = 5,
     .name = "watch",
     .description = "Save all recordings whenever the recorder comes into range, until Ctrl-C",
     .parameters = {{"-o,--output", "DIR", "The folder (default: the current one)"},
                    {"--exec", "COMMAND",
                     "Run by sh for each file, its path in $1 and KWT_FILE; also KWT_ID and KWT_CREATED"},
                    {"--as", "opus|wav|mp3", "Convert it, before the recorder deletes it (default: opus)"},
                    {"--name", "PATTERN", "Names of the files, as for pull"},
                    {"--every", "SECONDS", "How long to wait between two looks (default: 30)",
                     Parameter::Kind::seconds}},
     .prepare = prepareWatch,
     .isQuestion = true});

}  // namespace
}  // namespace kwtsdk::tool
