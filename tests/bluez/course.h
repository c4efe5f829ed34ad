#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include <kwtsdk/bytes.h>

namespace kwtsdk::testing {

/// What the fake BlueZ does from a write on that the recorder has carried out, before it answers it: commands
/// separated by ";". Those behind a "value" wait until a notification has been passed on.
class Course {
 public:
  using Of = std::function<std::string(const Bytes& written)>;

  void set(Of of) { of_ = std::move(of); }
  void begin(const Bytes& written) {
    steps_.clear();
    std::istringstream commands(of_ ? of_(written) : "");
    for (std::string step; std::getline(commands, step, ';');) steps_.push_back(step);
  }
  void end() { steps_.clear(); }

  /// None: nothing for now.
  std::optional<std::string> next() {
    if (steps_.empty() || steps_.front() == "value") return std::nullopt;
    std::string step = std::move(steps_.front());
    steps_.pop_front();
    return step;
  }
  void passed() {
    if (!steps_.empty()) steps_.pop_front();
  }

 private:
  Of of_;
  std::deque<std::string> steps_;
};

}  // namespace kwtsdk::testing
