#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <future>

#include <benchmark/benchmark.h>

#include "bench/host.h"
#include "bench/measure.h"
#include "bench/yardsticks.h"
#include "codec/hex.h"
#include "platform/threads/mutex.h"
#include "tests/support/temporary_folder.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::bench {
namespace {

/// Keeps a producer from running ahead of its consumer. Both sides count on their own and meet once a batch,
/// which leaves the pace to them.
class Window {
 public:
  static constexpr std::uint64_t kBatch = 256, kBatches = 8;

  /// Before each packet; false when the consumer has stopped.
  bool enter() { return entered_++ % kBatch != 0 || take(1); }

  /// After each packet.
  void leave() {
    if (++left_ % kBatch != 0) return;
    {
      const internal::MutexLock lock(mutex_);
      ++free_;
    }
    freed_.notifyOne();
  }

  /// Waits for all that entered, which must be whole batches.
  bool drain() {
    if (!take(kBatches)) return false;
    const internal::MutexLock lock(mutex_);
    free_ = kBatches;
    return true;
  }

 private:
  bool take(std::uint64_t batches) {
    const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const internal::MutexLock lock(mutex_);
    while (free_ < batches) {
      if (!freed_.waitUntil(mutex_, latest)) return false;
    }
    free_ -= batches;
    return true;
  }

  std::uint64_t entered_ = 0;  // the producer's
  std::uint64_t left_ = 0;     // the consumer's
  internal::Mutex mutex_;
  internal::Condition freed_;
  std::uint64_t free_ KWT_GUARDED_BY(mutex_) = kBatches;
};

constexpr std::size_t kData = wire::kDownloadDataSize;
constexpr std::uint64_t kRounds = 64, kPacketsPerRound = 782 * Window::kBatch;
static_assert(kRounds * kPacketsPerRound * kData >= std::uint64_t{1} << 30);

Bytes packet(std::uint8_t validByte0, std::uint8_t others) {
  Bytes bytes{0x03, 0x82, wire::kDownloadPacketSize - 4, 0, validByte0, others, others, others, 0, 0, 0, 0};
  for (std::size_t i = 0; i < kData; ++i) bytes.push_back(static_cast<std::uint8_t>(i * 5));
  return bytes;
}
const Bytes kFullPacket = packet(kData, 0), kEndMarker = packet(0xFF, 0xFF);

/// A real download of the library, held where the recorder sends packets.
class Download {
 public:
  Download() : host_([this](const Bytes& frame) { return answer(frame); }) {}

  /// Until the recorder was asked for packets.
  bool begin(const std::string& path) {
    host_.helper->downloadFirstFlashFile(
        path, [this](std::uint64_t, std::uint64_t) { window_.leave(); },
        [this](const MaybeError& error) { completed_.set_value(!error); });
    if (!happens(accepted_)) return false;
    host_.fileNotify->setValue(kFullPacket);
    return true;
  }

  /// Forwards packets and waits until they are in the file.
  bool receive(std::uint64_t packets) {
    for (std::uint64_t i = 0; i < packets; ++i) {
      if (!window_.enter()) return false;
      host_.notify(host_.fileNotify);
    }
    return window_.drain();
  }

  /// True when the caller was told of success and the recorder to delete the file.
  bool finish() {
    host_.fileNotify->setValue(kEndMarker);
    host_.notify(host_.fileNotify);
    return happens(completed_) && happens(deleted_);
  }

 private:
  std::optional<Bytes> answer(const Bytes& frame) {
    switch (frame.front()) {
      case 0x01:  // one file, id 1
        return internal::toData("018208000100000001000000");
      case 0x02:  // exists, 65535 blocks
        return internal::toData("02822400010000000000ffff" + std::string(56, '0'));
      case 0x03:
        accepted_.set_value(true);
        return std::nullopt;
      case 0x04:
        deleted_.set_value(true);
        return internal::toData("048208000000000000000000");
      default:
        return Bytes(32);
    }
  }

  static bool happens(std::promise<bool>& event) {
    auto future = event.get_future();
    return future.wait_for(std::chrono::seconds(20)) == std::future_status::ready && future.get();
  }

  std::promise<bool> accepted_, completed_, deleted_;
  Window window_;
  Host host_;
};

/// The yardstick: a packet's text is handed to a thread, which writes its data.
class BareDownload {
 public:
  explicit BareDownload(const std::string& path)
      : file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666)) {}
  ~BareDownload() { ::close(file_); }
  BareDownload(const BareDownload&) = delete;
  BareDownload& operator=(const BareDownload&) = delete;

  bool receive(std::uint64_t packets) {
    for (std::uint64_t i = 0; i < packets; ++i) {
      if (!window_.enter()) return false;
      queue_.push([this, text = text_] {
        if (::write(file_, text.data(), kData) == static_cast<ssize_t>(kData)) window_.leave();
      });
    }
    return window_.drain();
  }

 private:
  const std::string text_ = internal::hexString(kFullPacket);
  const int file_;
  Window window_;
  HandOff queue_;
};

// One round of either side, into a file that ends at `written` then. The bytes behind are given back to the
// disk, so that a gibibyte does not have to go there.
template <class Receiver>
bool receiveRound(Receiver& receiver, const std::string& path, std::uint64_t& written) {
  written += kPacketsPerRound * kData;
  const bool complete =
      receiver.receive(kPacketsPerRound) && static_cast<std::uint64_t>(fileSize(path)) == written;
  return ::truncate(path.c_str(), 0) == 0 && complete;
}

void download(benchmark::State& state) {
  const testing::TemporaryFolder folder;
  const std::string path = folder.file("download"), barePath = folder.file("bare");
  if (!forgetPeak()) return fail(state, "The peak of memory cannot be measured: /proc/self/clear_refs");
  const double before = peakMemory();
  Download subject;
  if (!subject.begin(path)) return fail(state, "The download does not begin");
  BareDownload yardstick(barePath);
  bool complete = true;
  std::uint64_t written = 0, bareWritten = 0;
  compare(
      state, {.name = "download, packet to file / hand-off and write", .most = 3}, kWall, kPacketsPerRound,
      [&] { complete = complete && receiveRound(subject, path, written); },
      [&] { complete = complete && receiveRound(yardstick, barePath, bareWritten); });
  if (!complete || !subject.finish()) return fail(state, "The download stopped or its file is incomplete");
  report(state, {.name = "download of 1 GiB, growth of peak memory", .most = 16, .unit = "MiB"},
         (peakMemory() - before) / (1 << 20));
}
BENCHMARK(download)->Iterations(kRounds)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kwtsdk::bench
