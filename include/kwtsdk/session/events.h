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

struct RecordingInfo {
  std::uint32_t id = 0;
  std::uint64_t bytes = 0;
  std::optional<Date> created;  // with its century, which the recorder leaves out
  std::int64_t type = 0;        // the recorder's byte, not interpreted
};

enum class RecordingType : std::uint8_t { normal, noiseReduced, call, media, ambient };
enum class RecordingEnd : std::uint8_t { timeOver, stopped, key, call, recorder };

namespace event {
struct LinkChanged {
  LinkState state;
  MaybeError error;
};
struct BatterySeen {
  std::uint64_t level;
};  // whoever asked
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
  std::error_code error;
};  // no error: success
struct Unexpected {
  Bytes notification;
};  // no operation awaited it
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
/// for it, and no memory grows. Ends when the Session is closed or the stream is let go.
template <class T>
class Stream {
 public:
  explicit Stream(std::shared_ptr<detail::Channel<T>> channel) : channel_(std::move(channel)) {}

  /// The next element; none: the stream has ended. One at a time. An element is never lost by cancelling.
  Operation<std::optional<T>> next(const Limits& limits = {}) const;

  /// Instead of next(): each element on the executor.
  void forEach(std::function<void(const T&)> callback) const;

  std::uint64_t missed() const noexcept;

 private:
  std::shared_ptr<detail::Channel<T>> channel_;
};

extern template class KWTSDK_EXPORT Stream<Event>;
extern template class KWTSDK_EXPORT Stream<AudioPacket>;

}  // namespace kwtsdk::session
