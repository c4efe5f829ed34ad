#include "tools/standard_streams.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>

#include <kwtsdk/files.h>

#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

Failure streamFailure(const std::string& what) {
  return {ToolError::fileUnusable, what + ": " + std::strerror(errno) + ".",
          "Check where it comes from or goes to, and the free space, then run the command again."};
}

}  // namespace

void requirePipedOutput() {
  require(
      ::isatty(STDOUT_FILENO) == 0,
      "sound would go to standard output, which is a terminal: name a file with -o, or add a pipe such as "
      "`| ffplay -`");
}

int takeStandardOutput() {
  const int descriptor = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  if (descriptor < 0 || ::dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
    throw streamFailure("Cannot use standard output");
  return descriptor;
}

bool saveStandardInput(const std::string& file, const std::stop_token& stop) {
  constexpr int tick = 100;  // ms
  FileHandle output(::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  std::array<char, 65536> block{};
  while (!stop.stop_requested()) {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    if (::poll(&input, 1, tick) == 0) continue;
    const ssize_t count = ::read(STDIN_FILENO, block.data(), block.size());
    if (count == 0) return true;
    if (count < 0 && errno != EINTR && errno != EAGAIN) throw streamFailure("Cannot read standard input");
    if (count > 0 && !output.write(block.data(), static_cast<std::size_t>(count)))
      throw streamFailure("Cannot keep standard input in " + file);
  }
  return false;
}

void printFile(const std::string& file, int descriptor) {
  std::ifstream input(file, std::ios::binary);
  FileHandle output(::dup(descriptor));
  std::array<char, 65536> block{};
  while (input.read(block.data(), block.size()), input.gcount() > 0) {
    if (!output.write(block.data(), static_cast<std::size_t>(input.gcount())))
      throw streamFailure("Cannot write standard output");
  }
}

}  // namespace kwtsdk::tool
