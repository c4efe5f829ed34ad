#pragma once

#include <coroutine>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <utility>

#include <kwtsdk/export.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/session/progress.h>
#include <kwtsdk/session/result.h>

namespace kwtsdk::session {

namespace detail {

class Worker;

/// What an operation's handles, callbacks and the Session's worker share. Thread-safe.
class KWTSDK_EXPORT Operating {
 public:
  virtual ~Operating();
  Operating(const Operating&) = delete;
  Operating& operator=(const Operating&) = delete;

  bool done() const noexcept;
  void cancel() noexcept;
  bool wait(const std::optional<Duration>& longest) const;  // through the scheduler; false: not done
  ProgressReport progress() const;
  void onProgress(std::function<void(const ProgressReport&)> callback);
  void whenDone(std::function<void()> callback);  // once, on the executor, never inside this call

 protected:
  Operating();

 private:
  friend class Worker;
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

template <class T>
class Outcome : public Operating {
 public:
  const Result<T>& result() const { return *result_; }  // only when done()

 private:
  friend class Worker;
  std::optional<Result<T>> result_;
};

}  // namespace detail

/// One operation of a Session: started, and somewhere between the queue and its end. Every operation ends,
/// exactly once, whatever recorder, link, file and host do: with a value, a failure, or cancelled.
///
/// A handle is cheap to copy and safe on any thread. Letting go of it neither cancels nor waits: the
/// operation goes on, and its failure is logged. There are four ways to its result, in any number and
/// mixture:
///
///   auto result = op.wait();                          // this thread waits, through the scheduler
///   op.then([](Result<T> result) { ... });            // on the executor
///   std::future<Result<T>> future = op.future();      // real threads only
///   Result<T> result = co_await op;                   // goes on on the executor; in any coroutine type; if
///                                                     // it has ended already, on this thread
///
/// Callbacks run one at a time on the Session's executor, never inside the call that registers them, never
/// on a thread that the link or the recorder waits for, and with no lock held: they may do anything, also
/// start operations and wait for them, and let go of the Session. What they throw is logged.
template <class T>
class [[nodiscard]] Operation {
 public:
  explicit Operation(std::shared_ptr<detail::Outcome<T>> outcome) : outcome_(std::move(outcome)) {}

  bool done() const noexcept { return outcome_->done(); }

  /// Asks it to end; returns at once, any thread, also in a callback, as often as you like. A queued
  /// operation ends at once. A running one leaves the recorder in order: a transfer is cut at once by ending
  /// the link; a live recording is stopped, at most 5 s, and one that is just being started is waited for
  /// first, at most 10 s, since a stop would start it; an image that was accepted is waited for, at most 5 s.
  /// A query is given up at once, and the next operation makes the link anew. Limits::timeout() and
  /// Session::close() end it in the same way.
  void cancel() const noexcept { outcome_->cancel(); }

  /// On the Session's own worker, where Work runs, nothing can be waited for: the operation ends with
  /// Errc::badArgument.
  Result<T> wait() const { return outcome_->wait(std::nullopt), outcome_->result(); }
  std::optional<Result<T>> waitFor(Duration longest) const {
    if (!outcome_->wait(longest)) return std::nullopt;
    return outcome_->result();
  }

  void then(std::function<void(const Result<T>&)> callback) const {
    outcome_->whenDone([outcome = outcome_, callback = std::move(callback)] { callback(outcome->result()); });
  }

  std::future<Result<T>> future() const {
    auto promise = std::make_shared<std::promise<Result<T>>>();
    auto future = promise->get_future();
    then([promise = std::move(promise)](const Result<T>& result) { promise->set_value(result); });
    return future;
  }

  /// How far it is, at any time, also when it has ended.
  ProgressReport progress() const { return outcome_->progress(); }

  /// At most ten times a second, and at every change of stage; the last one has the stage `over` and comes
  /// before the result. A slow callback skips: one is under way at a time, and the transfer waits for none.
  void onProgress(std::function<void(const ProgressReport&)> callback) & {
    outcome_->onProgress(std::move(callback));
  }
  void onProgress(std::function<void(const ProgressReport&)> callback) && = delete;

  class Awaiter {
   public:
    explicit Awaiter(std::shared_ptr<detail::Outcome<T>> outcome) : outcome_(std::move(outcome)) {}
    bool await_ready() const noexcept { return outcome_->done(); }
    void await_suspend(std::coroutine_handle<> waiting) {
      outcome_->whenDone([waiting] { waiting.resume(); });
    }
    Result<T> await_resume() const { return outcome_->result(); }

   private:
    std::shared_ptr<detail::Outcome<T>> outcome_;
  };
  Awaiter operator co_await() const { return Awaiter(outcome_); }

 private:
  std::shared_ptr<detail::Outcome<T>> outcome_;
};

}  // namespace kwtsdk::session
