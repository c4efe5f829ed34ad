#include "tools/terminal_line.h"

#include <unistd.h>

#include <chrono>
#include <iostream>

namespace kwtsdk::tool {
namespace {

constexpr const char* kLineStart = "\r\x1b[K";  // carriage return, clear to the end of the line
constexpr Duration kShortestPause = std::chrono::milliseconds(100);

}  // namespace

TerminalLine::TerminalLine(const Scheduler& scheduler)
    : scheduler_(scheduler), visible_(::isatty(STDERR_FILENO) == 1) {}

bool TerminalLine::isDue() const {
  return visible_ && (!shown_ || scheduler_.now() - *shown_ >= kShortestPause);
}

void TerminalLine::show(const std::string& text) {
  if (!visible_) return;
  shown_ = scheduler_.now();
  std::cerr << kLineStart << text << std::flush;
}

void TerminalLine::clear() {
  if (shown_) std::cerr << kLineStart << std::flush;
  shown_.reset();
}

}  // namespace kwtsdk::tool
