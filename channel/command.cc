#include "channel/command.h"

namespace kwtsdk::internal {

Command::Command(Plan described)
    : plan(std::move(described)),
      subscription(plan.notifyOn == nullptr || plan.stream ? nullptr
                                                           : std::make_shared<Subscription>(plan.notifyOn)) {}

Command::Command(std::int64_t type, std::string writeTo, Bytes frame, ReplyHandler host)
    : plan{.type = type, .writeTo = std::move(writeTo), .frame = std::move(frame)}, block(std::move(host)) {}

void Command::call(const Answer& answer) {
  if (block) block(answer.error, answer.reply);
  if (plan.onAnswer) plan.onAnswer(answer);
}

Command::Plan Command::takeHandlers() {
  Plan taken;
  taken.onAnswer.swap(plan.onAnswer);
  taken.prepare.swap(plan.prepare);
  taken.stream.swap(plan.stream);
  return taken;
}

}  // namespace kwtsdk::internal
