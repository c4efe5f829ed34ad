#pragma once

#include <cstdint>
#include <optional>

#include <kwtsdk/session/result.h>

#include "session/inbox.h"
#include "session/requests.h"

namespace kwtsdk::session::detail {

/// One request and what has come of it. No I/O: the conversation writes and shows it what arrives.
///
/// An answer counts once the write is acknowledged. What matches before that may be the answer of the request
/// before, doubled: it is kept, and counts with the acknowledgement unless it is the very same bytes.
class Exchange {
 public:
  explicit Exchange(Request request) : request_(std::move(request)) {}

  const Request& request() const { return request_; }

  /// It has been written as number `write` to `to`. `before`: what came last on its channel; may be none.
  void sent(const Characteristic* to, std::uint64_t write, const Characteristic* answersOn,
            const std::optional<Bytes>& before);

  /// True when the sign was its: so many writes to that characteristic have been acknowledged by then.
  bool offer(const Sign& sign, std::uint64_t acknowledged);

  bool isAcknowledged() const { return isAcknowledged_; }
  bool isOver() const { return answer_ || error_; }

  /// Acknowledgement and answer are both to come, so that one of them alone cannot end it well.
  bool needsBoth() const { return request_.isAnswer && !isAcknowledged_ && !early_; }

  /// The answer, none where the acknowledgement is all; or what the write failed with.
  const std::optional<Bytes>& answer() const { return answer_; }
  const MaybeError& error() const { return error_; }

 private:
  void acknowledge(const MaybeError& error);

  Request request_;
  const Characteristic* to_ = nullptr;
  const Characteristic* answersOn_ = nullptr;
  std::uint64_t write_ = 0;
  std::optional<Bytes> before_;
  bool isAcknowledged_ = false;
  std::optional<Bytes> early_, answer_;
  MaybeError error_;
};

}  // namespace kwtsdk::session::detail
