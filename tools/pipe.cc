#include "tools/pipe.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "tools/delivery.h"
#include "tools/temporary.h"

namespace kwtsdk::tool {
namespace {

namespace fs = std::filesystem;

Failure unwritten(ToolError code, const std::string& what, std::uint64_t written, std::uint64_t size) {
  return {code, what + " after " + ofBytesText(written, size) + ".",
          "The recorder still has the recording; run the command again."};
}

/// As much as surely goes into a pipe that takes anything at all, so that a reader who is slow, or waits,
/// does not keep Ctrl-C from ending it.
void writeOut(const Environment& environment, const fs::path& file) {
  constexpr int tick = 100;  // ms
  std::array<char, 4096> piece{};
  std::ifstream content(file, std::ios::binary);
  const std::uint64_t size = fs::file_size(file);
  std::uint64_t written = 0;
  while (written < size) {
    content.read(piece.data(), piece.size());
    for (std::streamsize at = 0; at < content.gcount();) {
      pollfd pipe{STDOUT_FILENO, POLLOUT, 0};
      const int ready = ::poll(&pipe, 1, tick);
      if (environment.stop.stop_requested())
        throw unwritten(ToolError::interrupted, "Interrupted", written, size);
      if (ready <= 0) continue;
      const ssize_t count =
          ::write(STDOUT_FILENO, piece.data() + at, static_cast<std::size_t>(content.gcount() - at));
      if (count < 0 && errno != EINTR && errno != EAGAIN) {
        throw unwritten(ToolError::fileUnusable,
                        errno == EPIPE
                            ? "The program that reads standard output ended"
                            : "Cannot write to standard output: " + std::string(std::strerror(errno)),
                        written, size);
      }
      at += std::max<ssize_t>(count, 0);
      written += static_cast<std::uint64_t>(std::max<ssize_t>(count, 0));
    }
    if (content.gcount() == 0)
      throw unwritten(ToolError::fileUnusable, "Cannot read " + file.string(), written, size);
  }
}

void pullToPipe(const Environment& environment, Form form, const Output& output) {
  if (output.json()) {
    throw Failure(ToolError::usage, "With --json the recording and the result would be in one pipe.",
                  "Leave one of the two out.");
  }
  const TemporaryFolder temporary;
  const auto recorder = openRecorder(environment);
  const Delivery delivery{environment, *recorder, form, true};
  const Delivered delivered = delivery.run(temporary.file("recording"));
  checkConverted(delivered);
  writeOut(environment, delivered.file);
  std::cerr
      << "kwt: The recorder keeps its copy, since what becomes of it in a pipe cannot be seen here; `kwt rm "
      << delivered.saved.recording.id << "` deletes it.\n";
}

}  // namespace

Action preparePipe(const Arguments& arguments) {
  require(!arguments.has("--all"), "-o - takes one recording: leave --all out, or name a folder");
  require(!arguments.has("--name"), "-o - writes no file: leave --name out");
  require(::isatty(STDOUT_FILENO) == 0,
          "-o - writes to a pipe or a file, and standard output is a terminal: add | and a program, or name "
          "a file");
  const Form form = formOf(arguments, {});
  return [form](const Environment& environment, Output& output) { pullToPipe(environment, form, output); };
}

}  // namespace kwtsdk::tool
