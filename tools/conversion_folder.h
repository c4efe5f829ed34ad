#pragma once

#include <filesystem>
#include <string>

#include "tools/pulled_name.h"
#include "tools/recorder.h"

namespace kwtsdk::tool {

/// The hidden folder beside converted recordings in which they are made. Nothing in it is anybody else's, so
/// that what a killed program has left there can be told from a person's own files. One program at a time.
/// Everything throws Failure.
class ConversionFolder {
 public:
  /// Whether there is one, with what another program has left.
  static bool isIn(const std::filesystem::path& folder);

  explicit ConversionFolder(const std::filesystem::path& folder);
  ~ConversionFolder();  // it goes when it is empty
  ConversionFolder(const ConversionFolder&) = delete;
  ConversionFolder& operator=(const ConversionFolder&) = delete;

  /// Where the recording is that is to become the file.
  static std::filesystem::path sourceOf(const std::filesystem::path& target);

  /// Makes the file: at once, whole, on the disk, with the recording's time. One that is there already and is
  /// the same stays. "" or, for a recording that nobody can convert, the reason.
  std::string convert(const Environment& environment, const std::filesystem::path& source,
                      const std::filesystem::path& target, Form form) const;

  /// Takes a recording out of it, to stay as it is.
  void giveOut(const std::filesystem::path& source, const std::filesystem::path& file) const;

  /// Finishes what was left where the recorder has deleted its copy. `usual` is the form of what has no
  /// extension.
  void sweep(const Environment& environment, Form usual) const;

 private:
  std::filesystem::path shownFolder() const { return folder_.empty() ? "." : folder_; }
  void lock();
  void removeRests() const;
  void publish(const std::filesystem::path& made, const std::filesystem::path& target,
               const std::filesystem::path& source) const;

  const std::filesystem::path folder_, path_;
  int descriptor_ = -1;
};

}  // namespace kwtsdk::tool
