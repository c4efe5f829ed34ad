#include "session/exchange.h"

namespace kwtsdk::session::detail {

void Exchange::sent(const Characteristic* to, std::uint64_t write, const Characteristic* answersOn,
                    const std::optional<Bytes>& before) {
  to_ = to;
  write_ = write;
  answersOn_ = answersOn;
  before_ = before;
}

bool Exchange::offer(const Sign& sign, std::uint64_t acknowledged) {
  if (sign.kind == Sign::Kind::acknowledged) {
    if (sign.from != to_ || isAcknowledged_ || acknowledged < write_) return false;
    acknowledge(sign.error);
    return true;
  }
  if (sign.kind != Sign::Kind::notified || sign.from != answersOn_ || isOver()) return false;
  if (!request_.isAnswer || !request_.isAnswer(sign.value)) return false;
  (isAcknowledged_ ? answer_ : early_) = sign.value;
  return true;
}

void Exchange::acknowledge(const MaybeError& error) {
  isAcknowledged_ = true;
  error_ = error;
  if (error_) return;
  if (!request_.isAnswer) {
    answer_.emplace();
  } else if (early_ && early_ != before_) {
    answer_ = early_;
  }
}

}  // namespace kwtsdk::session::detail
