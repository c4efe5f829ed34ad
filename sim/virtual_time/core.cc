#include "sim/virtual_time/core.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

#include "sim/virtual_time/processor.h"
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

Core::Core(std::uint64_t seed) : seed_(seed), random_(seed), switchMask_(switchMaskFor(seed)) {}

SimThread* Core::self() const { return current != nullptr && &current->core == this ? current : nullptr; }

SimThread& Core::requireSelf(const std::string& operation) const {
  SimThread* thread = self();
  if (thread == nullptr) {
    fail(operation + " on a thread that is not simulated; call it inside run() or on a spawned thread");
  }
  return *thread;
}

void Core::run(const std::function<void()>& body) {
  const ProcessorPin pin;
  thread_local Baton baton;
  Lock lock(mutex_);
  if (running_) {
    lock.unlock();
    fail("run() while another run() of the same scheduler is going on");
  }
  running_ = true;
  runStart_ = now();
  steps_ = 0;
  SimThread& main = *threads_.emplace_back(new SimThread{*this, ++lastId_, "main", nullptr, &baton, {}});
  SimThread* const outer = std::exchange(current, &main);
  lock.unlock();

  std::exception_ptr failure;
  try {
    body();
  } catch (...) {
    failure = std::current_exception();
  }

  lock.lock();
  do {
    block(lock, main, {.kind = WaitKind::runEnd});
  } while (threads_.size() >
           1);  // a thread from outside the simulation submitted something at the last moment
  remove(main);
  running_ = ending_ = false;
  current = outer;
  lock.unlock();
  if (failure) std::rethrow_exception(failure);
}

void Core::close() {
  std::vector<std::shared_ptr<Job>> jobs;
  {
    const Lock lock(mutex_);
    if (running_) return;
    closed_ = true;
    for (const auto& thread : threads_) {
      if (thread->wait && thread->wait->list != nullptr) std::erase(*thread->wait->list, thread.get());
      jobs.push_back(std::move(thread->job));
    }
    threads_.clear();
    runnable_.clear();
  }
  for (const auto& job : jobs) job->abandon();
}

void Core::preemptionPoint() {
  SimThread* const thread = self();
  if (thread == nullptr) return;
  Lock lock(mutex_);
  if (inHandler_) return;
  countStep(lock);
  if (!runnable_.empty() && (random_.next() & switchMask_) == 0) yield(lock, *thread);
}

SimThread& Core::add(const std::string& name, std::shared_ptr<Job> job, std::optional<Wait> wait) {
  SimThread& thread =
      *threads_.emplace_back(new SimThread{*this, ++lastId_, name, std::move(job), nullptr, {}});
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

void Core::block(Lock& lock, SimThread& self, const Wait& wait) {
  startWaiting(self, wait);
  switchFrom(lock, self);
}

void Core::yield(Lock& lock, SimThread& self) {
  runnable_.push_back(&self);
  switchFrom(lock, self);
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
  Core& core = self.core;
  current = &self;
  self.job->run();
  self.job.reset();
  Lock lock(core.mutex_);
  const std::unique_ptr<SimThread> ended = core.remove(self);
  SimThread& next = core.pickNext(lock);
  current = nullptr;
  return next;
}

void Core::switchFrom(Lock& lock, SimThread& self) {
  if (inHandler_) {
    lock.unlock();
    fail("the deadlock handler must not block");
  }
  SimThread& next = pickNext(lock);
  if (&next == &self) return;
  Baton& baton = *self.baton;
  lock.unlock();
  handOverTo(next);
  baton.receive();
  lock.lock();
}

SimThread& Core::pickNext(Lock& lock) {
  countStep(lock);
  while (runnable_.empty()) {
    if (advanceClock(lock) || endWhenAllIsDone()) continue;
    reportTrouble(lock, "deadlock: no thread can go on and nothing has a deadline");
    requireRunnable(lock);
  }
  SimThread*& slot = runnable_[random_.below(runnable_.size())];
  SimThread& next = *slot;
  slot = runnable_.back();
  runnable_.pop_back();
  return next;
}

bool Core::advanceClock(Lock& lock) {
  std::optional<Duration> earliest;
  for (const auto& thread : threads_) {
    if (!thread->wait || !thread->wait->deadline) continue;
    earliest = std::min(earliest.value_or(*thread->wait->deadline), *thread->wait->deadline);
  }
  if (!earliest) return false;
  if (*earliest - runStart_ > timeLimit_) {
    reportTrouble(lock, "the run lasts for ever: its limit of virtual time is used up");
    requireRunnable(lock);
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

void Core::countStep(Lock& lock) {
  if (++steps_ <= stepLimit_) return;
  reportTrouble(lock, "the run lasts for ever: the clock does not move any more");
  steps_ = 0;
}

std::optional<Duration> deadlineAfter(Duration now, Duration delay) {
  if (delay > Duration::max() - now) return std::nullopt;
  return now + delay;
}

}  // namespace kwtsdk::sim::virtual_time
