#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/file_header.h>
#include <kwtsdk/log.h>

#include "platform/threads/mutex.h"
#include "tools/connection.h"
#include "tools/failure.h"

namespace kwtsdk::tool {

/// What a command runs on, and which recorder it is for.
struct Environment {
  std::shared_ptr<Scheduler> scheduler;
  Interrupt& interrupt;
  std::string simulatedFolder;
  std::string device;  // Bluetooth address; used when there is no folder
};

/// Passes lines on and shows them to an observer: of a download's later fate the library tells only its log.
class ObservedLog : public Log {
 public:
  using Observer = std::function<void(std::string_view line)>;

  explicit ObservedLog(std::shared_ptr<Log> next) : next_(std::move(next)) {}
  void write(LogLevel level, std::string_view line) override;

  /// Called on the library's threads; empty: none.
  void observe(Observer observer) { observer_.set(std::move(observer)); }

 private:
  const std::shared_ptr<Log> next_;
  internal::SharedField<Observer> observer_;
};

/// A connected recorder, for the length of one command. A facade of its own each time: what an earlier
/// command left pending, such as a download's watchdog, cannot reach the next one.
class Session {
 public:
  /// Connects. Throws Failure, or std::runtime_error whose text says what to do.
  explicit Session(const Environment& environment);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  KWTBluetoothHelper& recorder() { return *recorder_; }
  Scheduler& scheduler() { return *scheduler_; }
  Interrupt& interrupt() { return interrupt_; }
  ObservedLog& log() { return *log_; }
  RecorderConnection& connection() { return *connection_; }

  /// What Ctrl-C does as long as nobody sets another action.
  void disconnectOnInterrupt() { interrupt_.setAction(connection_->interruptAction()); }

 private:
  const std::shared_ptr<Scheduler> scheduler_;
  Interrupt& interrupt_;
  const std::shared_ptr<ObservedLog> log_;
  const std::unique_ptr<RecorderConnection> connection_;
  const std::shared_ptr<KWTBluetoothHelper> recorder_;
};

// Queries whose missing answer is a Failure that says so.

bool isConnected(Session& session);

/// The recorder did not answer in the time that it had, or the connection is gone. The library's blocking
/// forms wait for 5 s.
Failure noAnswer(Session& session, Duration waited = std::chrono::seconds(5));

/// The pause that a recorder needs between two commands.
void pause(Session& session);

/// The battery level. The first query of every command: it wakes the recorder.
std::int64_t batteryLevel(Session& session);

/// Such as "1.2.3".
std::string firmwareVersion(Session& session);

FlashInfo storeInfo(Session& session);

struct FirstRecording {
  std::int64_t id;
  KWTFileHeader header;
};

/// A Failure also when the recorder holds no recordings.
FirstRecording firstRecording(Session& session);

}  // namespace kwtsdk::tool
