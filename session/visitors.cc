#include "session/visitors.h"

namespace kwtsdk::session::detail {

Visitors::~Visitors() {
  Worker::Jobs taken;
  taken.swap(taken_);
  giveUp();
  if (!taken.empty() && !taken.front()->state().done()) worker_.putBack(taken);
}

/// Its answer may still come.
void Visitors::giveUp() {
  if (question_) {
    recorder_.forget(*question_);
    if (!question_->isOver()) recorder_.distrustLink();
    question_.reset();
  }
  taken_.clear();
}

bool Visitors::isWaiting() const {
  if (!job()) return !recorder_.isLinkDistrusted() && worker_.hasLetIn();
  return job()->state().done() || !question_ || question_->isOver();
}

MaybeFailure Visitors::attend() {
  for (;;) {
    if (job() && worker_.isClosed()) job()->state().interrupt(Errc::closed);
    if (job() && job()->state().done()) giveUp();
    if (!job() && !recorder_.isLinkDistrusted()) taken_ = worker_.takeLetIn();
    if (!job()) return std::nullopt;
    if (question_ && !question_->isOver()) {
      if (recorder_.now() < due_) return std::nullopt;
      job()->failFor(Errc::stalled, "the recorder did not answer");
      giveUp();
    } else if (question_ && question_->error()) {
      job()->fail({Errc::linkFailed, "the Bluetooth stack refused it", Effect::none, question_->error()});
      giveUp();
    } else if (auto failure = goOn()) {
      return failure;
    }
  }
}

/// With the answer to the question before, to the next one.
MaybeFailure Visitors::goOn() {
  if (question_) {
    job()->letIn()->take(*question_->answer());
    recorder_.forget(*question_);
    question_.reset();
  }
  const Request* const request = job()->letIn()->next();
  if (request == nullptr) {
    job()
        ->letIn()
        ->succeed();  // unless another thread is just ending it, which is no reason to wait for that
    taken_.clear();
    return std::nullopt;
  }
  question_.emplace(*request);
  due_ = recorder_.answerDue(job()->limits().silence());
  auto failure = recorder_.send(*question_);
  if (failure) question_.reset();
  return failure;
}

}  // namespace kwtsdk::session::detail
