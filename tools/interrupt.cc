#include "tools/interrupt.h"

#include <unistd.h>

#include <chrono>
#include <utility>

namespace kwtsdk::tool {
namespace {

constexpr int kWakeUp = SIGUSR1;

/// A program started in the background has them ignored, and has to keep it so.
bool isIgnored(int number) {
  struct sigaction current {};
  return ::sigaction(number, nullptr, &current) == 0 && current.sa_handler == SIG_IGN;
}

void endProgram(int number) {
  ::signal(number, SIG_DFL);
  sigset_t only;
  ::sigemptyset(&only);
  ::sigaddset(&only, number);
  ::pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
  ::raise(number);
}

}  // namespace

Interrupt::Interrupt(Scheduler& scheduler)
    : scheduler_(scheduler), queue_(scheduler.serialQueue("kwt.signals")) {
  ::sigemptyset(&signals_);
  ::sigaddset(&signals_, kWakeUp);
  for (const int number : {SIGINT, SIGTERM}) {
    if (!isIgnored(number)) ::sigaddset(&signals_, number);
  }
  ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  queue_->async([this] { watch(); });
}

Interrupt::~Interrupt() {
  stopping_ = true;
  ::kill(::getpid(), kWakeUp);
  queue_ = nullptr;
}

void Interrupt::setAction(std::function<void()> action) {
  const internal::MutexLock lock(mutex_);
  action_.swap(action);
}

std::function<void()> Interrupt::takeAction() {
  const internal::MutexLock lock(mutex_);
  return std::exchange(action_, nullptr);
}

void Interrupt::watch() {
  int number = 0;
  while (::sigwait(&signals_, &number) == 0 && !stopping_) {
    if (number != kWakeUp) onSignal(number);
  }
}

void Interrupt::onSignal(int number) {
  // Programs such as timeout(1) send a signal to the process and to its group.
  constexpr Duration twins = std::chrono::milliseconds(200);
  if (acted_ && scheduler_.now() - *acted_ < twins) return;
  const auto action = takeAction();
  if (!action) return endProgram(number);
  acted_ = scheduler_.now();
  action();
}

}  // namespace kwtsdk::tool
