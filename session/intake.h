#pragma once

#include <cstdint>
#include <span>

#include "session/connection.h"

namespace kwtsdk::session::detail {

/// Where a transfer's bytes go, and what they mean for it.
class Intake {
 public:
  /// What is to be done next.
  struct Verdict {
    enum class Kind {
      more,   // wait for what follows
      again,  // ask again, from askFrom() on: something did not arrive as it was sent
      other,  // ask again, from askFrom() on: for another reason, which costs no try
      whole,
      failed,
    } kind = Kind::more;
    MaybeFailure failure{};
  };

  virtual ~Intake() = default;

  /// Before bytes are asked for: on the link that was there, or on a new one.
  virtual void begin(bool isNewLink) = 0;
  virtual std::uint64_t askFrom() const = 0;

  /// The bytes that follow.
  virtual Verdict take(std::span<const std::uint8_t> bytes) = 0;

  /// The recorder has no more, or all has been taken, or even `isOverfull`: it sent more.
  virtual Verdict end(bool isOverfull) = 0;

  /// Of the byte that follows.
  virtual std::uint64_t position() const = 0;
  virtual bool isSecondLook() const = 0;
};

}  // namespace kwtsdk::session::detail
