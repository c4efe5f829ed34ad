#pragma once

#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "tools/output.h"
#include "tools/recorder.h"

namespace kwtsdk::tool {

/// An option of a command, or one of its arguments when the name begins without dashes.
struct Parameter {
  enum class Kind { text, seconds, flag, texts };  // texts: one or more

  const char* name;       // such as "-o,--output"; Arguments know it by what is before the comma
  const char* valueName;  // such as "FILE"
  const char* description;
  Kind kind = Kind::text;
  bool isRequired = false;
};

/// What was given to a command.
class Arguments {
 public:
  struct Value {
    bool isGiven = false;
    std::string text;
    std::vector<std::string> texts;
    double seconds = 0;
  };

  bool has(const char* name) const { return values_.at(name).isGiven; }
  const std::string& text(const char* name) const { return values_.at(name).text; }
  const std::vector<std::string>& texts(const char* name) const { return values_.at(name).texts; }
  /// None when it was not given.
  std::optional<Duration> duration(const char* name, Duration longest) const;

  /// The place of a parameter's value; it stays where it is.
  Value& operator[](const Parameter& parameter) { return values_[nameOf(parameter)]; }
  static std::string nameOf(const Parameter& parameter);

 private:
  std::map<std::string, Value> values_;
};

/// Wrong usage beyond what the parser knows; it is reported in the same way.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};
void require(bool condition, const std::string& message);

/// Throws a Failure when the recorder or a file says no.
using Action = std::function<void(const Environment&, Output&)>;

struct Command {
  enum class Recorder { named, none, itsOwn };

  int place;  // in the list of commands that --help shows
  const char* name;
  const char* description;
  Recorder recorder = Recorder::named;
  std::vector<Parameter> parameters{};
  /// What the command does with these arguments. May throw UsageError.
  std::function<Action(const Arguments&)> prepare{};
  bool isQuestion = false;  // its lines are what was asked for: --quiet leaves them
};

/// Makes a command known to the command line: one constant in the command's file.
class RegisteredCommand {
 public:
  explicit RegisteredCommand(Command command);
};

/// What a command line asks for.
struct Invocation {
  Action action;
  std::string simulatedFolder, device;
  bool json = false;
  std::string adapter{}, trace{};
  bool verbose = false, quiet = false, isQuestion = false;
  std::optional<double> seconds{};  // that it may take
  ProgressMode progress = ProgressMode::automatic;

  OutputStyle style() const { return {json, quiet && !isQuestion, verbose}; }
};

/// The exit status when there is nothing to run: help or the version, or a usage error, has been printed.
std::variant<Invocation, int> parseCommandLine(std::vector<std::string> words);

}  // namespace kwtsdk::tool
