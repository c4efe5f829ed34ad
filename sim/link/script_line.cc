#include "sim/link/script_line.h"

#include <charconv>
#include <sstream>
#include <stdexcept>

namespace kwtsdk::sim {

ScriptLine::ScriptLine(std::size_t lineNumber, std::string_view text) : lineNumber_(lineNumber), text_(text) {
  std::istringstream words(text_.substr(0, text_.find('#')));
  for (std::string word; words >> word;) words_.push_back(word);
}

std::vector<ScriptLine> ScriptLine::linesOf(std::string_view text) {
  std::vector<ScriptLine> lines;
  std::istringstream stream{std::string(text)};
  std::string line;
  for (std::size_t number = 1; std::getline(stream, line); ++number) {
    const ScriptLine parsed(number, line);
    if (parsed.size() > 0) lines.push_back(parsed);
  }
  return lines;
}

void ScriptLine::fail(const std::string& reason) const {
  throw std::runtime_error("line " + std::to_string(lineNumber_) + ", \"" + text_ + "\": " + reason);
}

void ScriptLine::expectSize(std::size_t least, std::size_t most, std::string_view form) const {
  if (size() < least || size() > most) fail("write it as \"" + std::string(form) + "\"");
}

std::uint64_t ScriptLine::number(std::size_t index, std::uint64_t least, std::uint64_t most) const {
  const std::string& word = words_[index];
  std::uint64_t value = 0;
  const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (failure != std::errc{} || end != word.data() + word.size() || value < least || value > most) {
    fail("\"" + word + "\" is not a whole number from " + std::to_string(least) + " to " +
         std::to_string(most));
  }
  return value;
}

Duration ScriptLine::duration(std::size_t index) const {
  constexpr double longest = 3600e9;
  const std::string& word = words_[index];
  double value = 0;
  const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), value);
  const std::string_view unit(end, static_cast<std::size_t>(word.data() + word.size() - end));
  const double scale = unit == "us" ? 1e3 : unit == "ms" ? 1e6 : unit == "s" ? 1e9 : 0;
  const double nanoseconds = value * scale;
  if (failure != std::errc{} || scale == 0 || !(nanoseconds >= 0 && nanoseconds <= longest)) {
    fail("\"" + word + "\" is not a duration from 0 to an hour, such as 250us, 7.5ms or 2s");
  }
  return Duration(static_cast<Duration::rep>(nanoseconds));
}

}  // namespace kwtsdk::sim
