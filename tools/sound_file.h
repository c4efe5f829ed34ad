#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/opus/live_conversion.h>

#include "tools/temporary.h"

namespace kwtsdk::tool {

/// Such as ".wav", in lower case.
std::string extensionOf(const std::string& file);

/// A live recording as a file that people play, made while it is recorded. The packets go into a temporary
/// file, which this follows: however slow the output is, nothing is lost.
class SoundFile {
 public:
  /// A new file or an empty one. Throws a Failure.
  SoundFile(const std::string& file, opus::LiveConversion::Format format);

  /// Standard output, as Ogg Opus. What is printed from then on goes to standard error.
  SoundFile();

  /// Removes an output of its own that has stayed empty.
  ~SoundFile();
  SoundFile(const SoundFile&) = delete;
  SoundFile& operator=(const SoundFile&) = delete;

  /// The file to record into, which is known under this name until there is sound.
  const std::string& packets() const { return packets_->path(); }

  /// Brings what is new into the output. What happened if that failed; it is of no use to go on then.
  std::optional<std::string> follow();

  /// Without a failure all of it is on the disk, or in the pipe.
  std::optional<std::string> finish();

  /// Whether the output is a pipe that nobody reads any more.
  bool isReaderGone() const;
  std::uint64_t written() const { return conversion_->written(); }

 private:
  void open();
  std::optional<std::string> sync() const;

  const std::string file_;  // empty: standard output
  std::string name_;        // for people
  int descriptor_ = -1;
  bool isNew_ = false;
  std::unique_ptr<TemporaryFile> packets_;
  std::unique_ptr<opus::LiveConversion> conversion_;
};

}  // namespace kwtsdk::tool
