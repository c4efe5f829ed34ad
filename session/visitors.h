#pragma once

#include <memory>
#include <optional>

#include "session/conversation.h"
#include "session/job.h"
#include "session/worker.h"

namespace kwtsdk::session::detail {

/// The queries that are let in while a recording runs, one at a time. One without an answer lets nobody in
/// behind it: a late answer would become theirs, and a new link would end the recording.
class Visitors {
 public:
  Visitors(Conversation& recorder, Worker& worker) : recorder_(recorder), worker_(worker) {}

  /// One that is under way goes back into the queue.
  ~Visitors();
  Visitors(const Visitors&) = delete;
  Visitors& operator=(const Visitors&) = delete;

  /// Does what can be done without waiting.
  MaybeFailure attend();

  /// Whether that is anything, or may be.
  bool isWaiting() const;

  /// When there will be, unless an answer comes first.
  Duration due() const { return question_ && !question_->isOver() ? due_ : Duration::max(); }

 private:
  MaybeFailure goOn();
  void giveUp();

  Conversation& recorder_;
  Worker& worker_;
  Job* job() const { return taken_.empty() ? nullptr : taken_.front().get(); }

  Worker::Jobs taken_;  // one at most
  std::optional<Exchange> question_;
  Duration due_{0};
};

}  // namespace kwtsdk::session::detail
