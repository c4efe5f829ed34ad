#pragma once

#include <memory>

#include "session/intake.h"
#include "session/page_check.h"
#include "session/part_file.h"

namespace kwtsdk::session::detail {

/// Puts a recording together in its part file.
///
/// Every Ogg page is checked. Where one does not, the bytes from the last whole page on are asked for again;
/// if they fail twice in the same way, or the content begins as no Ogg, the recorder has them like that: then
/// they are stored as they are, and count when a second download of them is alike; in doubt a third one too.
class Assembly : public Intake {
 public:
  Assembly(std::shared_ptr<PartFile> part, std::uint64_t total) : part_(std::move(part)), total_(total) {}

  /// Checks what is there of an earlier attempt.
  MaybeFailure resume();

  void begin(bool isNewLink) override;
  std::uint64_t askFrom() const override { return position_; }
  Verdict take(std::span<const std::uint8_t> bytes) override;
  Verdict end(bool isOverfull) override;
  std::uint64_t position() const override { return position_; }
  bool isSecondLook() const override { return mode_ == Mode::comparing; }

  /// Every page's CRC; false: it is no Ogg, or not all of it.
  bool isChecked() const { return isChecked_; }

 private:
  enum class Mode { checking, storing, comparing };
  using Kind = Verdict::Kind;

  Verdict check(std::span<const std::uint8_t> bytes);
  void beginStoring(std::uint64_t from);
  Verdict mendFailure();
  Verdict again();
  Verdict store(std::span<const std::uint8_t> bytes);
  Verdict compare(std::span<const std::uint8_t> bytes);
  MaybeFailure write(std::span<const std::uint8_t> bytes);

  const std::shared_ptr<PartFile> part_;
  const std::uint64_t total_;
  PageCheck check_;
  Mode mode_ = Mode::checking;
  std::uint64_t position_ = 0;
  std::uint64_t compareFrom_ = 0;            // what is stored from there on is unchecked
  unsigned alike_ = 0;                       // downloads after the first
  bool isDoubtful_ = false;                  // chance may have made two alike
  std::optional<std::uint64_t> failedWith_;  // the last failure's fingerprint
  bool isChecked_ = false;
};

}  // namespace kwtsdk::session::detail
