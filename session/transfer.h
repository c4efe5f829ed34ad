#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "session/conversation.h"
#include "session/intake.h"

namespace kwtsdk::session::detail {

/// The bytes of one recording from the recorder into an intake, over as many requests and links as it takes.
class Transfer : public Listener {
 public:
  Transfer(Conversation& recorder, RecordingInfo recording, Intake& intake);
  ~Transfer() override;
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;

  /// Ends with all of it taken. When the operation has to end the link is cut: nothing else stops a recorder
  /// that sends.
  Result<Done> run();

  /// Where the first request began.
  std::uint64_t beganAt() const { return beganAt_.value_or(0); }

  bool take(const Sign& sign) override;

 private:
  using Kind = Intake::Verdict::Kind;

  Result<Done> runOverOneLink();
  MaybeFailure checkStillFirst();
  Result<Kind> ask(bool isNewLink);
  Result<Kind> follow(Exchange& request);
  Result<Kind> useUp();
  MaybeFailure waitForBytes(const Exchange& request);
  MaybeFailure noteSilence();
  std::uint64_t left() const { return recording_.bytes - intake_.position() - bytes_.size(); }
  void report();

  Conversation& recorder_;
  const RecordingInfo recording_;
  Intake& intake_;
  std::uint64_t link_;  // on which the recording was the first
  std::optional<std::uint64_t> streamedOn_, beganAt_;

  const Exchange* request_ = nullptr;  // whose packets are taken
  Bytes bytes_;
  bool isEnd_ = false, isOverfull_ = false;
  Duration lastBytes_{0};
};

}  // namespace kwtsdk::session::detail
