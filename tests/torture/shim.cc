// A library to be preloaded, with which what the system gives is refused: SHIM="KIND NUMBER once|on" in the
// environment refuses the NUMBERth request of its kind since main() began, or also those that follow. Kinds:
// read, write and sync (of regular files), thread, and memory: operator new from the first thread on, before
// which there is only the command line. What follows a refused one is refused from 1 kB on: a machine that is
// out of memory still has small pieces.

#include <dlfcn.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

enum class Kind { none, read, write, sync, memory, thread };

Kind kind = Kind::none;
bool isLasting = false;
long refused = 0;
std::atomic<long> calls{0};
std::atomic<bool> isOn{false}, hasThread{false};

void configure() {
  const char* const text = std::getenv("SHIM");
  char name[8] = "", mode[8] = "";
  if (text == nullptr || std::sscanf(text, "%7s %ld %7s", name, &refused, mode) != 3) return;
  constexpr const char* names[] = {"", "read", "write", "sync", "memory", "thread"};
  for (int i = 1; i < 6; ++i)
    if (std::strcmp(name, names[i]) == 0) kind = static_cast<Kind>(i);
  isLasting = std::strcmp(mode, "on") == 0;
}

bool isRefused(Kind of, std::size_t size = 0) {
  constexpr std::size_t small = 1024;
  if (!isOn || kind != of) return false;
  const long number = ++calls;
  return number == refused || (isLasting && number > refused && (of != Kind::memory || size >= small));
}

bool isRefusedOf(Kind of, int descriptor) {
  if (!isOn || kind != of) return false;
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && isRefused(of);
}

template <class Result>
Result failWith(int error, Result result) {
  errno = error;
  return result;
}

using Main = int (*)(int, char**, char**);
Main realMain = nullptr;

int begin(int count, char** arguments, char** environment) {
  configure();
  isOn = true;
  const int status = realMain(count, arguments, environment);
  isOn = false;  // what the C library does then is none of the program's
  return status;
}

}  // namespace

extern "C" {

int __libc_start_main(Main program, int count, char** arguments, void (*start)(), void (*end)(),
                      void (*linkerEnd)(), void* stack) {
  using Start = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);
  realMain = program;
  const auto real = reinterpret_cast<Start>(::dlsym(RTLD_NEXT, "__libc_start_main"));
  return real(begin, count, arguments, start, end, linkerEnd, stack);
}

ssize_t read(int descriptor, void* into, std::size_t size) {
  if (isRefusedOf(Kind::read, descriptor)) return failWith(EIO, ssize_t{-1});
  return ::syscall(SYS_read, descriptor, into, size);
}

ssize_t pread(int descriptor, void* into, std::size_t size, off_t offset) {
  if (isRefusedOf(Kind::read, descriptor)) return failWith(EIO, ssize_t{-1});
  return ::syscall(SYS_pread64, descriptor, into, size, offset);
}

ssize_t write(int descriptor, const void* bytes, std::size_t size) {
  if (isRefusedOf(Kind::write, descriptor)) return failWith(ENOSPC, ssize_t{-1});
  return ::syscall(SYS_write, descriptor, bytes, size);
}

ssize_t pwrite(int descriptor, const void* bytes, std::size_t size, off_t offset) {
  if (isRefusedOf(Kind::write, descriptor)) return failWith(ENOSPC, ssize_t{-1});
  return ::syscall(SYS_pwrite64, descriptor, bytes, size, offset);
}

int fsync(int descriptor) {
  if (isRefused(Kind::sync)) return failWith(EIO, -1);
  return static_cast<int>(::syscall(SYS_fsync, descriptor));
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  hasThread = true;
  if (isRefused(Kind::thread)) return EAGAIN;
  static const auto real = reinterpret_cast<Create>(::dlsym(RTLD_NEXT, "pthread_create"));
  return real(thread, attributes, run, argument);
}

}  // extern "C"

// Instead of the standard library's, whose other forms call these.
void* operator new(std::size_t size) {
  if (hasThread && isRefused(Kind::memory, size)) throw std::bad_alloc();
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
