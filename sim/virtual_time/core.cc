#include "sim/virtual_time/core.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

#include "sim/virtual_time/thread_pool.h"

namespace kwtsdk::sim::virtual_time {
namespace {

thread_local SimThread* current = nullptr;

// Switching at one point in 2, 8 or 32: fine and coarse interleavings find different faults.
std::uint64_t switchMaskFor(std::uint64_t seed) {
  constexpr std::uint64_t masks[] = {1, 7, 31};
  return masks[Random(~seed).below(std::size(masks))];
}

}  // namespace

Core::Core(std::uint64_t seed) : seed_(seed), switchMask_(switchMaskFor(seed)), random_(seed) {}

SimThread* Core::self() const { return current != nullptr && &current->core == this ? current : nullptr; }

SimThread& Core::requireSelf(const std::string& operation) const {
  SimThread* thread = self();
  if (thread == nullptr) {
    const MutexLock lock(mutex);
    fail(operation + " on a thread that is not simulated; call it inside run() or on a spawned thread");
  }
  return *thread;
}

void Core::run(const std::function<void()>& body) {
  const ProcessorPin pin;
  thread_local Baton baton;
  SimThread& main = addMain(baton);
  SimThread* const outer = std::exchange(current, &main);

  std::exception_ptr failure;
  try {
    body();
  } catch (...) {
    failure = std::current_exception();
  }

  waitForTheOthers(main);
  current = outer;
  if (failure) std::rethrow_exception(failure);
}

SimThread& Core::addMain(Baton& baton) {
  const MutexLock lock(mutex);
  if (running_) fail("run() while another run() of the same scheduler is going on");
  running_ = true;
  runStart_ = now();
  steps_ = 0;
  return *threads_.emplace_back(new SimThread{*this, ++lastId_, "main", nullptr, &baton, {}});
}

void Core::waitForTheOthers(SimThread& main) {
  const MutexLock lock(mutex);
  do {
    block(main, {.kind = WaitKind::runEnd});
    // More than one: a thread from outside the simulation submitted something at the last moment.
  } while (threads_.size() > 1);
  remove(main);
  running_ = ending_ = false;
}

void Core::close() {
  std::vector<std::shared_ptr<ThreadBody>> bodies;
  {
    const MutexLock lock(mutex);
    if (running_) return;
    closed_ = true;
    for (const auto& thread : threads_) {
      if (thread->wait && thread->wait->list != nullptr) std::erase(*thread->wait->list, thread.get());
      bodies.push_back(std::move(thread->body));
    }
    threads_.clear();
    runnable_.clear();
  }
  for (const auto& body : bodies) body->abandon();
}

void Core::preemptionPoint() {
  SimThread* const thread = self();
  if (thread == nullptr) return;
  const MutexLock lock(mutex);
  if (inHandler_) return;
  countStep();
  if (!runnable_.empty() && (random_.next() & switchMask_) == 0) yield(*thread);
}

SimThread& Core::add(const std::string& name, std::shared_ptr<ThreadBody> body, std::optional<Wait> wait) {
  SimThread& thread =
      *threads_.emplace_back(new SimThread{*this, ++lastId_, name, std::move(body), nullptr, {}});
  if (wait) {
    startWaiting(thread, *wait);
  } else {
    runnable_.push_back(&thread);
  }
  return thread;
}

void Core::startWaiting(SimThread& thread, const Wait& wait) {
  thread.wait = wait;
  thread.wait->since = now();
  if (wait.list != nullptr) wait.list->push_back(&thread);
}

void Core::block(SimThread& self, const Wait& wait) {
  startWaiting(self, wait);
  switchFrom(self);
}

void Core::yield(SimThread& self) {
  runnable_.push_back(&self);
  switchFrom(self);
}

void Core::wake(SimThread& thread) {
  if (thread.wait->list != nullptr) std::erase(*thread.wait->list, &thread);
  thread.wait.reset();
  runnable_.push_back(&thread);
}

void Core::wakeOne(WaitList& list) {
  if (!list.empty()) wake(*list[random_.below(list.size())]);
}

void Core::wakeAll(WaitList& list) {
  while (!list.empty()) wake(*list.back());
}

std::unique_ptr<SimThread> Core::remove(SimThread& thread) {
  const auto found = std::ranges::find(threads_, &thread, &std::unique_ptr<SimThread>::get);
  std::unique_ptr<SimThread> removed = std::move(*found);
  threads_.erase(found);
  return removed;
}

SimThread& Core::runToEnd(SimThread& self) {
  current = &self;
  self.body->run();
  self.body.reset();
  const MutexLock lock(mutex);
  const std::unique_ptr<SimThread> ended = remove(self);
  SimThread& next = pickNext();
  current = nullptr;
  return next;
}

void Core::switchFrom(SimThread& self) {
  if (inHandler_) fail("the deadlock handler must not block");
  SimThread& next = pickNext();
  if (&next == &self) return;
  Baton& baton = *self.baton;
  mutex.unlock();
  handOverTo(next);
  baton.receive();
  mutex.lock();
}

SimThread& Core::pickNext() {
  countStep();
  while (runnable_.empty()) {
    if (advanceClock() || endWhenAllIsDone()) continue;
    callDeadlockHandler("deadlock: no thread can go on and nothing has a deadline");
    requireRunnable();
  }
  SimThread*& slot = runnable_[random_.below(runnable_.size())];
  SimThread& next = *slot;
  slot = runnable_.back();
  runnable_.pop_back();
  return next;
}

bool Core::advanceClock() {
  std::optional<Duration> earliest;
  for (const auto& thread : threads_) {
    if (!thread->wait || !thread->wait->deadline) continue;
    earliest = std::min(earliest.value_or(*thread->wait->deadline), *thread->wait->deadline);
  }
  if (!earliest) return false;
  if (*earliest - runStart_ > timeLimit_) {
    callDeadlockHandler("the run lasts for ever: its limit of virtual time is used up");
    requireRunnable();
    return true;
  }
  now_.store(earliest->count(), std::memory_order_relaxed);
  steps_ = 0;
  for (const auto& thread : threads_) {
    if (thread->wait && thread->wait->deadline == earliest) wake(*thread);
  }
  return true;
}

// The queues' threads go back to the pool first, so that no thread of a scheduler is left when none runs.
bool Core::endWhenAllIsDone() {
  SimThread* main = nullptr;
  for (const auto& thread : threads_) {
    if (thread->wait->kind == WaitKind::runEnd) {
      main = thread.get();
    } else if (thread->wait->kind != WaitKind::idleQueue) {
      return false;
    }
  }
  if (main == nullptr) return false;
  ending_ = true;
  for (const auto& thread : threads_) {
    if (thread.get() != main || threads_.size() == 1) wake(*thread);
  }
  return true;
}

void Core::countStep() {
  if (++steps_ <= stepLimit_) return;
  callDeadlockHandler("the run lasts for ever: the clock does not move any more");
  steps_ = 0;
}

std::optional<Duration> deadlineAfter(Duration now, Duration delay) {
  if (delay > Duration::max() - now) return std::nullopt;
  return now + delay;
}

}  // namespace kwtsdk::sim::virtual_time
