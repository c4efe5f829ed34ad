#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "tools/failure.h"

namespace kwtsdk::tool {

using Value =
    std::variant<bool, std::int64_t, std::uint64_t, double, std::string, std::vector<std::uint64_t>>;

/// What is not known is left out.
using Record = std::map<std::string, Value>;

/// Where a command's result goes: lines for people, or with --json one object, printed by finish().
class Output {
 public:
  explicit Output(bool json);
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  bool json() const { return json_; }

  void line(const std::string& text);
  void set(const std::string& key, const Value& value);
  void setList(const std::string& key, const std::vector<Record>& records);

  /// Tells a person on standard error, and the object as its "error".
  void fail(const Failure& failure);

  /// The exit status: 1 after a failure, also that of standard output itself.
  int finish();

 private:
  struct Object;

  const bool json_;
  bool failed_ = false;
  std::unique_ptr<Object> object_;
};

}  // namespace kwtsdk::tool
