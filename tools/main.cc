// kwt, the command-line host: operates a recorder through the library.

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <exception>
#include <iostream>

#include "tools/command_line.h"
#include "tools/interrupt.h"

namespace kwtsdk::tool {
namespace {

int run(const Invocation& invocation) {
  const auto scheduler = threadScheduler();
  const Interrupt interrupt(*scheduler);
  Output output(invocation.json);
  try {
    invocation.action({scheduler, interrupt.token(), invocation.simulatedFolder, invocation.device}, output);
  } catch (const Failure& failure) {
    output.fail(failure);
  } catch (const UsageError& error) {
    output.fail({ToolError::other, error.what(), ""});
    constexpr int usage = 2;
    return output.finish() == 0 ? 0 : usage;
  } catch (const std::exception& exception) {
    output.fail({ToolError::other, exception.what(), ""});
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
    std::cerr << "kwt: " << exception.what() << '\n';
    return 1;
  }
}
