#pragma once

#include <stop_token>
#include <string>

namespace kwtsdk::tool {

/// A program that plays files.
class Player {
 public:
  /// The first of those known that is installed and plays such files; with `anything` what is no WAV too.
  /// Throws a Failure that names them.
  static Player find(bool anything);

  /// Whether it plays Ogg Opus and MP3 as well as WAV.
  bool playsAnything() const { return playsAnything_; }
  const std::string& name() const { return name_; }

  /// Waits for its end, or ends it when a stop is asked for. Throws a Failure when it did not play.
  void play(const std::string& file, const std::stop_token& stop) const;

 private:
  Player(std::string name, bool playsAnything, const char* const* options)
      : name_(std::move(name)), playsAnything_(playsAnything), options_(options) {}

  std::string name_;
  bool playsAnything_;
  const char* const* options_;  // up to a null
};

}  // namespace kwtsdk::tool
