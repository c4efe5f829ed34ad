#pragma once

#include <map>
#include <string>
#include <vector>

#include <kwtsdk/settings.h>

namespace kwtsdk::testing {

/// Settings that write down what is asked of them.
class NotedSettings : public Settings {
 public:
  std::optional<std::uint64_t> read(const std::string& key) const override {
    return values.contains(key) ? std::optional(values.at(key)) : std::nullopt;
  }
  void write(const std::string& key, std::uint64_t value) override {
    values[key] = value;
    calls.push_back(key + "=" + std::to_string(value));
  }
  void remove(const std::string& key) override {
    values.erase(key);
    calls.push_back("remove " + key);
  }
  void flush() override { calls.emplace_back("flush"); }

  std::map<std::string, std::uint64_t> values;
  std::vector<std::string> calls;
};

}  // namespace kwtsdk::testing
