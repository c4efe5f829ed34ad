// What handles see of an operation, and how its worker gets at it.

#include <kwtsdk/session/operation.h>

#include <utility>

#include "session/worker.h"

namespace kwtsdk::session::detail {

struct Operating::Impl {
  std::shared_ptr<OperationState> state;
};

Operating::Operating() : impl_(std::make_unique<Impl>()) {}
Operating::~Operating() = default;

bool Operating::done() const noexcept { return impl_->state->done(); }

void Operating::cancel() noexcept {
  const auto& state = *impl_->state;
  internal::guardedCall(state.surroundings().log, "Cancelling", [this] { impl_->state->cancel(); });
}

bool Operating::wait(const std::optional<Duration>& longest) const { return impl_->state->wait(longest); }
ProgressReport Operating::progress() const { return impl_->state->progress(); }

void Operating::onProgress(std::function<void(const ProgressReport&)> callback) {
  impl_->state->onProgress(std::move(callback));
}

void Operating::whenDone(std::function<void()> callback) { impl_->state->whenDone(std::move(callback)); }

OperationState& Worker::stateOf(const Operating& operating) { return *operating.impl_->state; }

std::shared_ptr<OperationState> Worker::sharedStateOf(const Operating& operating) {
  return operating.impl_->state;
}

void Worker::adopt(Operating& operating, std::shared_ptr<OperationState> state) {
  operating.impl_->state = std::move(state);
}

}  // namespace kwtsdk::session::detail
