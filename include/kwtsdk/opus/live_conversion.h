#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/export.h>

namespace kwtsdk::opus {

/// Makes a file of a live recording while that is written. It plays as far as it has got at any moment, and
/// what ends it leaves it so. For one thread at a time.
class KWTSDK_EXPORT LiveConversion {
 public:
  enum class Format {
    oggOpus,  // the recorder's own packets, without loss; also into a pipe
    wav,      // 16 kHz mono
    mp3       // 16 kHz mono
  };

  /// Follows the recording at the path `packets`, which has to exist. `output` is open for writing,
  /// stays the caller's, and is a regular file unless the format is Ogg Opus; `name` is what it is called in
  /// messages. Nothing is written before there is sound.
  LiveConversion(const std::string& packets, int output, const std::string& name, Format format,
                 std::int32_t kilobitsPerSecond = 24);
  ~LiveConversion();
  LiveConversion(const LiveConversion&) = delete;
  LiveConversion& operator=(const LiveConversion&) = delete;

  /// Brings what was appended since the last call into the output; blocks for as long as that takes. What a
  /// person reads when it failed; nothing more is written then, and every later call tells the same. Throws
  /// nothing.
  std::optional<std::string> follow() noexcept;

  /// The last of them, when the recording has ended: completes the output.
  std::optional<std::string> finish() noexcept;

  /// Bytes in the output.
  std::uint64_t written() const noexcept;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kwtsdk::opus
