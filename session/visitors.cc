#include "session/visitors.h"

namespace kwtsdk::session::detail {

Visitors::~Visitors() {
  if (!job_) return;
  const auto job = job_;
  giveUp();
  if (!job->state().done()) worker_.putBack(job);
}

/// Its answer may still come.
void Visitors::giveUp() {
  if (question_) {
    recorder_.forget(*question_);
    if (!question_->isOver()) recorder_.distrustLink();
    question_.reset();
  }
  job_ = nullptr;
}

bool Visitors::isWaiting() const {
  if (!job_) return !recorder_.isLinkDistrusted() && worker_.hasLetIn();
  return job_->state().done() || !question_ || question_->isOver();
}

MaybeFailure Visitors::attend() {
  for (;;) {
    if (job_ && worker_.isClosed()) job_->state().interrupt(Errc::closed);
    if (job_ && job_->state().done()) giveUp();
    if (!job_ && !recorder_.isLinkDistrusted()) job_ = worker_.takeLetIn();
    if (!job_) return std::nullopt;
    if (question_ && !question_->isOver()) {
      if (recorder_.now() < due_) return std::nullopt;
      job_->fail({Errc::stalled, "the recorder did not answer"});
      giveUp();
    } else if (question_ && question_->error()) {
      job_->fail({Errc::linkFailed, "the Bluetooth stack refused it", Effect::none, question_->error()});
      giveUp();
    } else if (auto failure = goOn()) {
      return failure;
    }
  }
}

/// With the answer to the question before, to the next one.
MaybeFailure Visitors::goOn() {
  if (question_) {
    job_->letIn()->take(*question_->answer());
    recorder_.forget(*question_);
    question_.reset();
  }
  const Request* const request = job_->letIn()->next();
  if (request == nullptr) {
    job_->letIn()->succeed();  // unless another thread is just ending it, which is no reason to wait for that
    job_ = nullptr;
    return std::nullopt;
  }
  question_.emplace(*request);
  due_ = recorder_.answerDue(job_->limits().silence());
  auto failure = recorder_.send(*question_);
  if (failure) question_.reset();
  return failure;
}

}  // namespace kwtsdk::session::detail
