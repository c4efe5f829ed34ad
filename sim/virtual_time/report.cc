// What the scheduler says when a run cannot go on, and the limits that tell.

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "sim/virtual_time/core.h"

namespace kwtsdk::sim::virtual_time {
namespace {

std::string seconds(Duration time) {
  constexpr Duration::rep perSecond = 1'000'000'000;
  char text[40];
  std::snprintf(text, sizeof text, "%" PRId64 ".%09" PRId64, std::int64_t{time.count() / perSecond},
                std::int64_t{time.count() % perSecond});
  std::string trimmed(text);
  trimmed.erase(trimmed.find_last_not_of('0') + 1);
  if (trimmed.back() == '.') trimmed.pop_back();
  return trimmed + " s";
}

const char* meaningOf(WaitKind kind) {
  switch (kind) {
    case WaitKind::semaphore:
      return "waits for semaphore";
    case WaitKind::lock:
      return "waits for lock";
    case WaitKind::sleep:
      return "sleeps";
    case WaitKind::timer:
      return "armed";
    case WaitKind::idleQueue:
      return "idle, no work";
    case WaitKind::queueEnd:
      return "destroys, and waits for the thread of, queue";
    case WaitKind::runEnd:
      return "has ended, and waits for the others";
  }
  return "waits";
}

}  // namespace

void Core::setDeadlockHandler(DeadlockHandler handler) {
  const MutexLock lock(mutex);
  std::swap(handler_, handler);
}

void Core::setTimeLimit(Duration limit) {
  const MutexLock lock(mutex);
  timeLimit_ = limit;
}

void Core::setStepLimit(std::uint64_t limit) {
  const MutexLock lock(mutex);
  stepLimit_ = limit;
}

std::string Core::report() const {
  const MutexLock lock(mutex);
  return describe();
}

std::string Core::nameOf(ThreadId id) const {
  for (const auto& thread : threads_) {
    if (thread->id == id) return std::string("#").append(std::to_string(id)).append(" ").append(thread->name);
  }
  return "a thread that has ended or is not simulated";
}

std::string Core::describeWait(const Wait& wait) const {
  std::string text = meaningOf(wait.kind);
  if (wait.name != nullptr) text += " '" + *wait.name + "'";
  text += " since " + seconds(wait.since);
  if (wait.deadline) text += ", until " + seconds(*wait.deadline);
  if (wait.holder != nullptr && *wait.holder != 0) text += ", held by " + nameOf(*wait.holder);
  return text;
}

std::string Core::describe() const {
  const std::string seed = std::to_string(seed_);
  std::string text =
      "virtual time " + seconds(now()) + ", seed " + seed + "; repeat with KWTSDK_SEED=" + seed + "\n";
  for (const auto& thread : threads_) {
    text += "  #" + std::to_string(thread->id) + " " + thread->name + ": " +
            (thread->wait ? describeWait(*thread->wait) : "running or about to run") + "\n";
  }
  return text;
}

void Core::fail(const std::string& message) const {
  std::fprintf(stderr, "VirtualTimeScheduler: %s\n%s", message.c_str(), describe().c_str());
  std::abort();
}

void Core::callDeadlockHandler(const std::string& reason) {
  inHandler_ = true;
  {
    const DeadlockHandler handler = handler_;
    const std::string text = reason + "\n" + describe();
    if (!handler) fail(reason);
    mutex.unlock();
    handler(text);
  }
  mutex.lock();
  inHandler_ = false;
}

void Core::requireRunnable() {
  if (runnable_.empty()) fail("nothing can run even after the deadlock handler");
}

}  // namespace kwtsdk::sim::virtual_time
