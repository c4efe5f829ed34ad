#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

#include <kwtsdk/error.h>
#include <kwtsdk/export.h>

namespace kwtsdk::session {

/// Why an operation did not succeed. The numbers are part of the interface: none is used again for something
/// else. A code says who can do something about it.
enum class Errc {
  // asked for by the host
  cancelled = 1,  // by cancel() or a stop token
  closed,         // the Session was closed
  badArgument,    // also a wait on the Session's own worker, which could never end
  // time
  timedOut,  // Limits::timeout is over
  stalled,   // the recorder gave no sign for Limits::silence, or signs but no answer for three times that
  // the link
  linkLost,         // and all of Limits::reconnects were used up
  linkFailed,       // it could not be made, or the Bluetooth stack refused something: cause() has its error
  notARecorder,     // one of its five characteristics is missing
  packetsTooSmall,  // ATT MTU under 99
  // the recorder said no
  refused,    // cause() has the error with its code
  inCall,     // a recording of another type than call
  notInCall,  // a recording of the type call
  storeEmpty,
  notFirst,         // it gives out and deletes its first recording only
  noSuchRecording,  // or another one took its place meanwhile
  recordingInUse,
  imageRefused,  // by the recorder, or before anything was sent
  // the content, each time it was asked for again
  incomplete,  // bytes are missing
  damaged,     // it does not check
  // the host's machine
  fileUnusable,  // cannot be opened, written, renamed, or is not what it has to be
  noResources,   // no thread, no memory
};

/// Name "kwtsdk.session". Compares with std::errc: cancelled and closed with operation_canceled; timedOut and
/// stalled with timed_out; linkLost and linkFailed with not_connected; fileUnusable with io_error.
KWTSDK_EXPORT const std::error_category& category() noexcept;
inline std::error_code make_error_code(Errc code) noexcept { return {static_cast<int>(code), category()}; }

}  // namespace kwtsdk::session

template <>
struct std::is_error_code_enum<kwtsdk::session::Errc> : std::true_type {};

namespace kwtsdk::session {

/// What an operation that failed has done to the recorder. `unknown`: the command was sent and its answer
/// stayed away, so look before you repeat it.
enum class Effect : std::uint8_t { none, unknown, done };

/// A value; cheap to copy, compares with Errc, std::error_code and std::errc.
class KWTSDK_EXPORT Failure {
 public:
  Failure(Errc code, std::string text, Effect effect = Effect::none, MaybeError cause = std::nullopt)
      : code_(code), effect_(effect), text_(std::move(text)), cause_(std::move(cause)) {}

  Errc code() const noexcept { return code_; }
  operator std::error_code() const noexcept { return make_error_code(code_); }  // NOLINT: meant to convert

  /// One English sentence for a log: the operation, and what happened.
  const std::string& text() const noexcept { return text_; }
  Effect effect() const noexcept { return effect_; }

  /// The recorder's refusal as the facade would report it (domain, code, text), or the Bluetooth stack's own
  /// error.
  const MaybeError& cause() const noexcept { return cause_; }

  /// The same call again may succeed, and goes on where this one ended.
  bool worthRetrying() const noexcept {
    return code_ == Errc::timedOut || code_ == Errc::stalled || code_ == Errc::linkLost ||
           code_ == Errc::linkFailed || code_ == Errc::incomplete || code_ == Errc::damaged;
  }

  friend bool operator==(const Failure& failure, Errc code) noexcept { return failure.code_ == code; }

 private:
  Errc code_;
  Effect effect_;
  std::string text_;
  MaybeError cause_;
};

/// What value() throws; nothing else here throws.
class KWTSDK_EXPORT Exception : public std::system_error {
 public:
  explicit Exception(Failure failure)
      : std::system_error(failure, failure.text()),
        failure_(std::make_shared<const Failure>(std::move(failure))) {}
  const Failure& failure() const noexcept { return *failure_; }

 private:
  std::shared_ptr<const Failure> failure_;
};

}  // namespace kwtsdk::session
