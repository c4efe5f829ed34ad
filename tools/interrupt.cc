#include "tools/interrupt.h"

#include <unistd.h>

#include <chrono>

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
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    if (!isIgnored(number)) ::sigaddset(&signals_, number);
  }
  ::pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
  queue_->async([this] { watch(); });
}

void Interrupt::stopAfter(Duration time) {
  constexpr Duration once = std::chrono::hours(24 * 365);
  timer_ = scheduler_.repeatingTimer(time, once, Duration{0}, [stop = stop_, timeOver = timeOver_]() mutable {
    if (!stop.stop_requested()) *timeOver = true;
    stop.request_stop();
  });
}

Interrupt::~Interrupt() {
  timer_ = nullptr;
  ending_ = true;
  ::kill(::getpid(), kWakeUp);
  queue_ = nullptr;
}

void Interrupt::watch() {
  int number = 0;
  while (::sigwait(&signals_, &number) == 0 && !ending_) {
    if (number != kWakeUp) onSignal(number);
  }
}

void Interrupt::onSignal(int number) {
  // Programs such as timeout(1) send a signal to the process and to its group.
  constexpr Duration twins = std::chrono::milliseconds(200);
  if (stopped_ && scheduler_.now() - *stopped_ < twins) return;
  if (stopped_) return endProgram(number);
  stopped_ = scheduler_.now();
  stop_.request_stop();
}

}  // namespace kwtsdk::tool
