#pragma once

#include <memory>
#include <new>
#include <utility>

#include <kwtsdk/session/session.h>

#include "session/conversation.h"
#include "session/operation_state.h"

namespace kwtsdk::session::detail {

/// Questions and answers that can go on beside a live recording, which waits for none of them.
class LetIn {
 public:
  virtual ~LetIn() = default;

  /// What is to be asked; none: all has been answered.
  virtual const Request* next() const = 0;
  virtual void take(const Bytes& answer) = 0;
  virtual void succeed() = 0;
};

/// An operation in the worker's queue.
class Job {
 public:
  Job(std::shared_ptr<OperationState> state, Limits limits)
      : state_(std::move(state)), limits_(std::move(limits)) {}
  virtual ~Job() = default;
  Job(const Job&) = delete;
  Job& operator=(const Job&) = delete;

  OperationState& state() const { return *state_; }
  const std::shared_ptr<OperationState>& sharedState() const { return state_; }
  const Limits& limits() const { return limits_; }

  /// On the worker, with the recorder to itself; ends it.
  virtual void run(Conversation& recorder) = 0;

  /// Ends it unless it has ended. Any thread. It may lose its text where there is no memory for that.
  virtual void fail(const Failure& failure) noexcept = 0;

  void failFor(Errc reason, const char* text, Effect effect = Effect::none) noexcept {
    try {
      fail({reason, text, effect});
    } catch (const std::bad_alloc&) {
      fail({reason, "", effect});
    }
  }
  void interrupted(Errc reason) noexcept { failFor(reason, interruptionText(reason)); }

  virtual LetIn* letIn() { return nullptr; }

  /// A live recording, which stopRecording() ends.
  virtual bool isRecording() const { return false; }
  virtual void stop() {}

 private:
  const std::shared_ptr<OperationState> state_;
  const Limits limits_;
};

}  // namespace kwtsdk::session::detail
