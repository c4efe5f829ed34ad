#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/scripted_faults.h>

namespace kwtsdk::sim {

/// One line of a device script, cut into words. Everything it cannot read is a std::runtime_error that names
/// the line.
class ScriptLine {
 public:
  /// The lines that say something; `#` begins a comment.
  static std::vector<ScriptLine> linesOf(std::string_view text);

  std::size_t size() const { return words_.size(); }
  const std::string& operator[](std::size_t index) const { return words_[index]; }

  std::uint64_t number(std::size_t index, std::uint64_t least, std::uint64_t most) const;

  /// A number with the unit us, ms or s, up to an hour.
  Duration duration(std::size_t index) const;

  void expectSize(std::size_t least, std::size_t most, std::string_view form) const;
  [[noreturn]] void fail(const std::string& reason) const;

 private:
  ScriptLine(std::size_t lineNumber, std::string_view text);

  std::size_t lineNumber_;
  std::string text_;
  std::vector<std::string> words_;
};

/// Reads a fault line into `faults`; false when the line does not begin with a kind of event.
bool readFaultLine(const ScriptLine& line, ScriptedFaults& faults);

}  // namespace kwtsdk::sim
