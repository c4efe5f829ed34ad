#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <kwtsdk/file_time.h>

#include "tools/failure.h"

namespace kwtsdk::tool {

using Value =
    std::variant<bool, std::int64_t, std::uint64_t, double, std::string, std::vector<std::uint64_t>>;

/// What is not known is left out.
using Record = std::map<std::string, Value>;

/// The number in every object of --json as "schema": raised when a field goes or means something else.
inline constexpr std::int64_t kSchema = 1;

struct OutputStyle {
  bool json = false;
  bool quiet = false;    // no lines
  bool verbose = false;  // of failures also what was said in another language
};

/// Where a command's result goes: lines for people, or with --json one object, printed by finish().
class Output {
 public:
  explicit Output(bool json) : Output(OutputStyle{.json = json}) {}
  explicit Output(OutputStyle style);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  bool json() const { return style_.json; }

  void line(const std::string& text);
  void set(const std::string& key, const Value& value);
  void setList(const std::string& key, const std::vector<Record>& records);

  /// For programs, one of the results that a command has one after the other: an object in a line, printed at
  /// once, as then the last one is by finish().
  void entry(const Record& record);

  /// Whether nobody can be told any more.
  bool isBroken() const { return streamError_ != 0; }

  /// Tells a person on standard error, and the object as its "error".
  void fail(const Failure& failure);

  /// The exit status: that of the failure, or 1 when standard output could not be written. Where its reader
  /// has gone the program ends here, as by the signal that it would otherwise have had.
  int finish();

 private:
  struct Object;

  void checkStream();

  const OutputStyle style_;
  ExitStatus status_ = ExitStatus::success;
  bool hasEntries_ = false;
  int streamError_ = 0;  // the first error number of standard output
  std::unique_ptr<Object> object_;
};

/// A line for programs.
std::string jsonText(const Record& record);

/// Throws a Failure when no recording can be written there, before anything is sent.
void checkOutput(const std::string& path);

/// A recording's creation time on the recorder's own clock, as strftime prints it.
std::string creationTimeText(Date created, const char* format);

std::string bytesText(std::uint64_t count);                      // "80 bytes"
std::string ofBytesText(std::uint64_t done, std::uint64_t all);  // "80 of 1000 bytes"
std::string secondsText(double seconds, int decimals = 2);       // "4.98 s"

/// Text from elsewhere, in UTF-8, without what a terminal would obey.
std::string printable(std::string text);

}  // namespace kwtsdk::tool
