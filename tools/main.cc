// kwt, the command-line host: operates a recorder through the library.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <iostream>
#include <new>
#include <system_error>

#include "tools/command_line.h"
#include "tools/interrupt.h"
#include "tools/trace.h"
#include "tools/wire_log.h"

namespace kwtsdk::tool {
namespace {

Environment environmentOf(const Invocation& invocation, const std::shared_ptr<Scheduler>& scheduler,
                          const Interrupt& interrupt) {
  Environment environment{scheduler, interrupt.token(), invocation.simulatedFolder, invocation.device};
  environment.adapter = invocation.adapter;
  environment.verbose = invocation.verbose;
  if (invocation.verbose) environment.observers.push_back(wireLog(scheduler));
  if (!invocation.trace.empty()) environment.observers.push_back(traceInto(scheduler, invocation.trace));
  return environment;
}

/// What --timeout ended was not interrupted by a person.
Failure inTime(const Failure& failure, const Invocation& invocation, const Interrupt& interrupt) {
  const bool isInterrupted = failure.code() == static_cast<std::int64_t>(ToolError::interrupted);
  if (!interrupt.isTimeOver() || !isInterrupted) return failure;
  return {ToolError::timeOver,
          "The time of --timeout, " + secondsText(*invocation.seconds, 1) + ", was over. " + failure.what(),
          failure.hint()};
}

Failure failureOf(const std::exception& exception) {
  constexpr const char* hint = "End other programs, then run the command again.";
  if (dynamic_cast<const std::bad_alloc*>(&exception) != nullptr)
    return {ToolError::other, "There is no memory left.", hint};
  const auto* const system = dynamic_cast<const std::system_error*>(&exception);
  if (system != nullptr && system->code() == std::errc::resource_unavailable_try_again)
    return {ToolError::other, "No thread could be started.", hint};
  return {ToolError::other, exception.what(), ""};
}

int run(const Invocation& invocation) {
  const auto scheduler = threadScheduler();
  Interrupt interrupt(*scheduler);
  // A line that is written over and lines of other kinds do not go together.
  const bool isShown = !invocation.quiet && !invocation.verbose;
  const bool isSaid = invocation.progress != ProgressMode::automatic;
  setProgress(isShown || isSaid ? invocation.progress : ProgressMode::none);
  Output output(invocation.style());
  if (invocation.seconds) {
    const std::chrono::duration<double> seconds(*invocation.seconds);
    interrupt.stopAfter(std::chrono::duration_cast<Duration>(seconds));
  }
  try {
    invocation.action(environmentOf(invocation, scheduler, interrupt), output);
  } catch (const Failure& failure) {
    output.fail(inTime(failure, invocation, interrupt));
  } catch (const std::exception& exception) {
    output.fail(failureOf(exception));
  }
  return output.finish();
}

int runTool(int argc, char** argv) {
  const auto parsed = parseCommandLine({argv + 1, argv + argc});
  if (const int* status = std::get_if<int>(&parsed)) return *status;
  return run(std::get<Invocation>(parsed));
}

/// Without this a file that is opened later, such as a download, could become standard output. Read-only, so
/// that writing to it fails and is reported.
void fillClosedStandardStreams() {
  int descriptor = 0;
  do {
    descriptor = ::open("/dev/null", O_RDONLY);
  } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
  if (descriptor >= 0) ::close(descriptor);
}

}  // namespace
}  // namespace kwtsdk::tool

int main(int argc, char** argv) {
  kwtsdk::tool::fillClosedStandardStreams();
  // As failed writes, which are reported, instead of the end of the program.
  ::signal(SIGXFSZ, SIG_IGN);
  ::signal(SIGPIPE, SIG_IGN);
  try {
    return kwtsdk::tool::runTool(argc, argv);
  } catch (const std::exception& exception) {
    const auto failure = kwtsdk::tool::failureOf(exception);
    std::cerr << "kwt: " << failure.what() << '\n';
    if (!failure.hint().empty()) std::cerr << "kwt: " << failure.hint() << '\n';
    return 1;
  }
}
