#include "channel/command.h"

#include <utility>

namespace kwtsdk::internal {

Command::Command(std::int64_t type, std::string writeTo, Bytes frame, ReplyHandler host)
    : plan{.type = type, .writeTo = std::move(writeTo), .frame = std::move(frame)}, block(std::move(host)) {}

void Command::call(const Answer& answer) {
  if (block) block(answer.error, answer.reply);
  if (plan.onAnswer) plan.onAnswer(answer);
}

void Command::drop() {
  if (!claim()) return;
  subscription = nullptr;
  plan.untilAcknowledged = nullptr;  // the write itself may still be under way
  takeHandler();
}

}  // namespace kwtsdk::internal
