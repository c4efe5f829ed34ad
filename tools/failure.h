#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>

#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/session/errc.h>

namespace kwtsdk::tool {

/// What the tool itself finds, in the domain "kwt". The numbers are part of the --json output: none is used
/// again for something else.
enum class ToolError : std::int64_t {
  other = 0,
  noAnswer = 1,
  connectionLost = 2,
  stalled = 3,
  interrupted = 4,
  fileUnusable = 5,  // cannot be written, or is not what it has to be
  incomplete = 6,    // packets were lost on the way
  notDeleted = 7,    // the recorder did not confirm that it deleted a recording
  storeEmpty = 8,
  nothingRecorded = 9,
  notStopped = 10,  // the recorder did not confirm the end of a live recording
  notConverted = 11,
  notConfirmed = 12,  // an accepted image, that it runs
  noRecorder = 13,    // a Bluetooth device without the recorder's channels
  packetsTooSmall = 14,
};

/// Why a command ends with status 1. `what()` says what happened, the hint what to do next.
class Failure : public std::runtime_error {
 public:
  Failure(ToolError code, const std::string& text, std::string hint);
  Failure(const Error& error, const std::string& text, std::string hint);

  const std::string& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const std::string& hint() const { return hint_; }
  void addHint(const std::string& sentence) { hint_ += " " + sentence; }

 private:
  std::string domain_;
  std::int64_t code_;
  std::string hint_;
};

inline constexpr const char* kLibraryDomain = "com.kwt.sdk";

/// How long a query's answer may take.
inline constexpr Duration kAnswerTime = std::chrono::seconds(5);

/// A session's failures, and the errors of recorder and Bluetooth behind them, in the words of someone at a
/// terminal. `waited` is how long the recorder was silent if it was.
Failure explained(const session::Failure& failure, Duration waited = kAnswerTime);
Failure explained(const Error& error);

/// What a session says of it, without the name of its operation.
std::string sentenceOf(const session::Failure& failure);

/// The Bluetooth adapter's errors, and BlueZ's own.
Failure bluetoothFailure(const Error& error);

}  // namespace kwtsdk::tool
