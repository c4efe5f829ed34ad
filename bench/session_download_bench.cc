#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <future>
#include <string>

#include <benchmark/benchmark.h>

#include <kwtsdk/files.h>

#include "bench/measure.h"
#include "bench/ogg_store.h"
#include "bench/session_host.h"

namespace kwtsdk::bench {
namespace {

/// A folder in memory, where fsync costs nothing: how long a disk takes is no cost of the library.
class FolderInMemory {
 public:
  FolderInMemory() {
    std::string pattern = "/dev/shm/kwtsdk-bench-XXXXXX";
    if (::mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~FolderInMemory() {
    std::error_code ignored;
    if (isThere()) std::filesystem::remove_all(path_, ignored);
  }
  FolderInMemory(const FolderInMemory&) = delete;
  FolderInMemory& operator=(const FolderInMemory&) = delete;

  bool isThere() const { return !path_.empty(); }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

constexpr const char* kNoMemoryFolder = "There is no folder in memory to download into: /dev/shm";
constexpr std::uint64_t kWireData = 84;  // of a recording, in a packet

bool saves(session::Session& session, const std::string& path, std::uint64_t bytes) {
  const auto saved = session.download(path, session::DownloadOptions().keep()).wait();
  return saved && saved->checked && saved->recording.bytes == bytes;
}

/// The facade's way from a packet to the file, over the same kind of link.
class FacadeDownload {
 public:
  explicit FacadeDownload(std::uint16_t blocks) : store_(std::make_shared<OggStore>(blocks)) {
    recorder_.link->attach(helper_);
  }

  bool saves(const std::string& path) {
    std::promise<bool> completed;
    helper_->downloadFirstFlashFile(path, nullptr,
                                    [&](const MaybeError& error) { completed.set_value(!error); });
    const bool isComplete = completed.get_future().get();
    if (isComplete) store_->waitUntilDeleted();  // which is asked for after the completion
    recorder_.link->drain();
    // The last packet is written with what fills it up.
    return isComplete && fileSize(path) >= static_cast<std::int64_t>(store_->bytes());
  }

 private:
  const std::shared_ptr<OggStore> store_;
  const SimulatedRecorder recorder_{store_};
  const std::shared_ptr<KWTBluetoothHelper> helper_ = KWTBluetoothHelper::create(quietPlatform());
};

void sessionDownload(benchmark::State& state) {
  constexpr std::uint16_t kBlocks = 256;
  const FolderInMemory folder;
  if (!folder.isThere()) return fail(state, kNoMemoryFolder);
  const auto store = std::make_shared<OggStore>(kBlocks);
  const SimulatedRecorder recorder(store);
  const auto session = sessionOver(session::linkOver(recorder.link));
  FacadeDownload facade(kBlocks);
  const std::string path = folder.file("session"), facadePath = folder.file("facade");
  bool complete = true;
  compare(
      state, {.name = "session, checked download / the facade's, fsync apart", .most = 1.25}, kWall,
      store->bytes() / kWireData,
      [&] {
        std::filesystem::remove(path);
        complete = complete && saves(*session, path, store->bytes());
      },
      [&] {
        std::filesystem::remove(facadePath);
        complete = complete && facade.saves(facadePath);
      });
  if (!complete) fail(state, "A download failed or its file is incomplete");
}
BENCHMARK(sessionDownload)->Iterations(21)->UseManualTime()->Unit(benchmark::kMillisecond);

/// Before each block that the recorder sends: it does not run ahead of a file whose writer the machine keeps
/// waiting, and what is written is given back, so that a gibibyte does not have to be there.
class PacedFile {
 public:
  explicit PacedFile(std::string path) : path_(std::move(path)) {}

  void beforeBlockAt(std::uint64_t offset) {
    if (offset % kAhead != 0 || offset == 0) return;
    constexpr int attempts = 100'000;
    int attempt = 0;
    while (written() + kAhead < offset && ++attempt < attempts) ::usleep(200);
    isKept_ = isKept_ && attempt < attempts && ::truncate(path_.c_str(), 0) == 0;
  }
  bool isKept() const { return isKept_; }

 private:
  static constexpr std::uint64_t kAhead = 32 * sim::RecordingStore::kBlockSize;

  std::uint64_t written() const {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(fileSize(path_), 0));
  }

  const std::string path_;
  bool isKept_ = true;
};

void sessionDownloadMemory(benchmark::State& state) {
  constexpr std::uint16_t kBlocks = 32768;  // 1 GiB
  const FolderInMemory folder;
  if (!folder.isThere()) return fail(state, kNoMemoryFolder);
  const std::string path = folder.file("recording");
  PacedFile part(path + ".part");
  const auto store = std::make_shared<OggStore>(kBlocks);
  store->setOnRead([&](std::uint64_t offset) { part.beforeBlockAt(offset); });
  const SimulatedRecorder recorder(store);
  const auto session = sessionOver(session::linkOver(recorder.link));
  for (auto _ : state) {
    if (!forgetPeak()) return fail(state, "The peak of memory cannot be measured: /proc/self/clear_refs");
    const double before = peakMemory();
    if (!saves(*session, path, store->bytes()) || !part.isKept()) return fail(state, "The download failed");
    report(state, {.name = "session, download of 1 GiB, growth of peak memory", .most = 16, .unit = "MiB"},
           (peakMemory() - before) / (1 << 20));
  }
}
BENCHMARK(sessionDownloadMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kwtsdk::bench
