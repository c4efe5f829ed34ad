#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <variant>

#include <kwtsdk/bytes.h>
#include <kwtsdk/file_time.h>
#include <kwtsdk/session/limits.h>
#include <kwtsdk/session/link.h>
#include <kwtsdk/session/operation.h>

namespace kwtsdk::session {

/// A recording in the recorder's store.
struct RecordingInfo {
  std::uint32_t id = 0;     // consecutive, and not used again
  std::uint64_t bytes = 0;  // in whole blocks of 32768, the last one filled up
  std::optional<Date>
      created;            // the instant of its wall clock, with the century that the recorder leaves out
  std::int64_t type = 0;  // the recorder's byte, not interpreted
};

enum class RecordingType : std::uint8_t { normal, noiseReduced, call, media, ambient };

/// RecordOptions::length, a stop, the recorder's key, a call that it entered, or the recorder for a reason
/// that it does not tell.
enum class RecordingEnd : std::uint8_t { timeOver, stopped, key, call, recorder };

namespace event {
struct LinkChanged {
  LinkState state;
  MaybeError error;
};
struct BatterySeen {  // whoever asked
  std::uint64_t level;
};
struct RecordingStarted {
  RecordingType type;
};
struct RecordingEnded {
  RecordingEnd end;
};
struct RecordingSaved {
  RecordingInfo recording;
  std::filesystem::path file;
};
struct RecordingDeleted {
  RecordingInfo recording;
};
struct FirmwareInstalled {
  std::string before, after;
};
struct OperationEnded {
  std::string name;
  std::error_code error;  // none: success
};
struct Unexpected {  // no operation awaited it
  Bytes notification;
};
}  // namespace event

using Event = std::variant<event::LinkChanged, event::BatterySeen, event::RecordingStarted,
                           event::RecordingEnded, event::RecordingSaved, event::RecordingDeleted,
                           event::FirmwareInstalled, event::OperationEnded, event::Unexpected>;

/// 20 ms of a live recording, as it arrives.
struct AudioPacket {
  std::uint64_t number;  // from 0
  Bytes opus;            // one Opus packet, 16 kHz mono
};

namespace detail {
template <class T>
class Channel;
}

/// A bounded queue to one reader. A slow reader loses the oldest elements and can see how many; nothing waits
/// for it, and no memory grows. Ends when the Session is closed, after what is in it, or the stream is let
/// go: whoever uses forEach() keeps the stream. Any thread.
template <class T>
class Stream {
 public:
  explicit Stream(std::shared_ptr<detail::Channel<T>> channel) : channel_(std::move(channel)) {}

  /// The next element; none: the stream has ended. One at a time: a second one ends with
  /// Errc::badArgument. An element is never lost by cancelling. Without a limit unless limits.timeout() is
  /// set. Errc::cancelled, timedOut, badArgument.
  Operation<std::optional<T>> next(const Limits& limits = {}) const;

  /// Instead of next(): each element on the executor, one at a time. Empty: no longer.
  void forEach(std::function<void(const T&)> callback) const;

  /// How many the reader was too slow for.
  std::uint64_t missed() const noexcept;

 private:
  std::shared_ptr<detail::Channel<T>> channel_;
};

extern template class KWTSDK_EXPORT Stream<Event>;
extern template class KWTSDK_EXPORT Stream<AudioPacket>;

}  // namespace kwtsdk::session
