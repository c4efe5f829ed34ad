#include "tests/scarcity/scarcity.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

namespace kwtsdk::testing {
namespace {

std::atomic<bool> isScarce{false};
std::atomic<std::uint64_t> refusable{0};
Scarcity current;
char title[200];

bool isRefused(Scarcity::Of of) {
  if (!Counting::isOn || !isScarce || current.of != of) return false;
  const std::uint64_t number = ++refusable;
  return current.at != 0 && (current.isLasting ? number >= current.at : number == current.at);
}

void* allocate(std::size_t size) {
  if (isRefused(Scarcity::Of::memory)) throw std::bad_alloc();
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

[[noreturn]] void sayWhereAndDie() {
  std::fprintf(stderr, "It died of: %s\n", title);
  std::abort();
}

/// What real threads take of the memory; the objects themselves are virtual time's.
void takeMemory() { std::free(allocate(1)); }
void takeThread() {
  if (isRefused(Scarcity::Of::threads))
    throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again), "no thread");
}

std::function<void()> counted(std::function<void()> work) {
  return [work = std::move(work)]() mutable {
    const Counting counts;
    work();
  };
}

/// What virtual time does it does itself, also at the end of its objects.
template <class T>
std::shared_ptr<T> spared(const std::shared_ptr<T>& real) {
  return {real.get(), [kept = real](T*) mutable {
            const Counting spares(false);
            kept = nullptr;
          }};
}

/// What is called through it takes nothing that counts.
template <class T>
class Sparing {
 public:
  explicit Sparing(const std::shared_ptr<T>& real) : real_(real.get()) {}
  T* operator->() const { return real_; }

 private:
  const Counting spares_{false};
  T* const real_;
};

class ScarceQueue : public SerialQueue {
 public:
  explicit ScarceQueue(const std::shared_ptr<SerialQueue>& real) : real_(spared(real)) {}
  void async(std::function<void()> work) override {
    takeMemory();
    if (!hasThread_) takeThread();
    hasThread_ = true;
    Sparing(real_)->async(counted(std::move(work)));
  }

 private:
  const std::shared_ptr<SerialQueue> real_;
  std::atomic<bool> hasThread_{false};
};

class ScarceSemaphore : public Semaphore {
 public:
  explicit ScarceSemaphore(std::shared_ptr<Semaphore> real) : real_(std::move(real)) {}
  void signal() override { Sparing(real_)->signal(); }
  bool wait(std::optional<Duration> timeout) override { return Sparing(real_)->wait(timeout); }

 private:
  const std::shared_ptr<Semaphore> real_;
};

class ScarceLock : public RecursiveLock {
 public:
  explicit ScarceLock(std::shared_ptr<RecursiveLock> real) : real_(std::move(real)) {}
  void lock() override { Sparing(real_)->lock(); }
  bool try_lock() override { return Sparing(real_)->try_lock(); }
  void unlock() override { Sparing(real_)->unlock(); }

 private:
  const std::shared_ptr<RecursiveLock> real_;
};

class ScarceScheduler : public Scheduler {
 public:
  explicit ScarceScheduler(std::shared_ptr<Scheduler> real) : real_(std::move(real)) {}

  std::shared_ptr<SerialQueue> serialQueue(const std::string& label) override {
    return make<ScarceQueue>([&] { return real_->serialQueue(label); });
  }
  std::shared_ptr<Semaphore> semaphore(const std::string& name) override {
    return make<ScarceSemaphore>([&] { return real_->semaphore(name); });
  }
  std::shared_ptr<RecursiveLock> recursiveLock(const std::string& name) override {
    return make<ScarceLock>([&] { return real_->recursiveLock(name); });
  }
  std::shared_ptr<Timer> repeatingTimer(Duration first, Duration interval, Duration leeway,
                                        std::function<void()> onFire) override {
    takeMemory();
    takeThread();
    const Counting spares(false);
    return spared(real_->repeatingTimer(first, interval, leeway, counted(std::move(onFire))));
  }
  void sleep(Duration duration) override { Sparing(real_)->sleep(duration); }
  Duration now() const override { return Sparing(real_)->now(); }

 private:
  template <class T, class Make>
  static std::shared_ptr<T> make(const Make& real) {
    takeMemory();
    const Counting spares(false);
    return std::make_shared<T>(real());
  }

  const std::shared_ptr<Scheduler> real_;
};

}  // namespace

void Scarcity::begin(const std::string& named) const {
  std::set_terminate(sayWhereAndDie);
  std::snprintf(title, sizeof title, "%s, request %llu%s", named.c_str(), static_cast<unsigned long long>(at),
                isLasting ? " and all that follow" : "");
  current = *this;
  refusable = 0;
  isScarce = true;
}

std::uint64_t Scarcity::end() {
  isScarce = false;
  return refusable;
}

std::shared_ptr<Scheduler> scarceScheduler(std::shared_ptr<Scheduler> real) {
  return std::make_shared<ScarceScheduler>(std::move(real));
}

}  // namespace kwtsdk::testing

#ifndef KWTSDK_KEEPS_OPERATOR_NEW
// Instead of the standard library's, whose other forms call these; AddressSanitizer's do not.
void* operator new(std::size_t size) { return kwtsdk::testing::allocate(size == 0 ? 1 : size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept try {
  return ::operator new(size);
} catch (const std::bad_alloc&) {
  return nullptr;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
#endif
