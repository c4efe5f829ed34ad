#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace kwtsdk::tool {

/// What a user has set for all commands: lines "name = value" in $XDG_CONFIG_HOME/kwt/config, or
/// ~/.config/kwt/config. Lines that begin with # and lines that are not understood stay as they are.
class Config {
 public:
  /// Throws a Failure when there is a file that cannot be read. None is an empty one.
  Config();

  const std::filesystem::path& path() const { return path_; }
  std::optional<std::string> value(const std::string& name) const;

  /// None removes it. Takes effect with save(), which replaces the file at once or not at all.
  void set(const std::string& name, const std::optional<std::string>& value);
  void save() const;

 private:
  std::filesystem::path path_;
  std::string text_;
};

}  // namespace kwtsdk::tool
