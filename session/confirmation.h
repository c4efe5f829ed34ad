#pragma once

#include <memory>

#include "session/existing_file.h"
#include "session/intake.h"

namespace kwtsdk::session::detail {

/// Whether a file that is there is the recorder's recording: its last page, which no other has, is compared
/// with the recorder's.
class Confirmation : public Intake {
 public:
  Confirmation(std::filesystem::path file, std::shared_ptr<ExistingFile> existing, std::uint64_t total)
      : file_(std::move(file)),
        existing_(std::move(existing)),
        total_(total),
        position_(existing_->lastPage()) {}

  void begin(bool) override { position_ = existing_->lastPage(); }
  std::uint64_t askFrom() const override { return position_; }
  Verdict take(std::span<const std::uint8_t> bytes) override;
  Verdict end(bool isOverfull) override;
  std::uint64_t position() const override { return position_; }
  bool isSecondLook() const override { return true; }

 private:
  const std::filesystem::path file_;
  const std::shared_ptr<ExistingFile> existing_;
  const std::uint64_t total_;
  std::uint64_t position_;
  unsigned differences_ = 0;
};

}  // namespace kwtsdk::session::detail
