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
  usage = 15,
  timeOver = 16,        // that --timeout gave
  notNamed = 17,        // which of several recorders
  notHeard = 18,        // no recorder in range, or none of the name
  notAgreed = 19,       // a question was answered with no, or nobody was there to answer it
  fileUnreadable = 20,  // a configuration or a trace
  notPlayed = 21
};

/// How a command ends, as sysexits.h has it where it goes beyond 2.
enum class ExitStatus : int {
  success = 0,
  failed = 1,
  usage = 2,
  noBluetooth = 69,  // this machine has none, it is off, or this user may not use it
  tryAgain = 75,     // link or time: the same command may succeed, and goes on where this one ended
};

/// Why a command does not end with status 0. `what()` says what happened, the hint what to do next.
class Failure : public std::runtime_error {
 public:
  Failure(ToolError code, const std::string& text, std::string hint);
  Failure(const Error& error, const std::string& text, std::string hint);

  const std::string& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const std::string& hint() const { return hint_; }
  void addHint(const std::string& sentence) { hint_ += " " + sentence; }

  ExitStatus status() const { return status_; }
  void setStatus(ExitStatus status) { status_ = status; }

  /// What recorder or library said in another language; "" when nothing.
  const std::string& detail() const { return detail_; }

 private:
  std::string domain_;
  std::int64_t code_;
  std::string hint_, detail_;
  ExitStatus status_ = ExitStatus::failed;
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
