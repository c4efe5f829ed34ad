// What scripts/bench-bluetooth compares with the bare client: the same operations through kwtsdk::bluez
// alone, with the facade or with a session on it. bluetooth-adapter ADDRESS ROUNDS BYTES
// adapter|facade|session

#include <atomic>
#include <filesystem>
#include <functional>
#include <future>
#include <iostream>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/session/adapters.h>

#include "bench/bluetooth/figures.h"
#include "codec/crc32.h"
#include "platform/posix/files.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::bench {
namespace {

constexpr const char* kFile = "/dev/shm/bluetooth-bench";

std::size_t packetsOf(std::size_t size) {
  return (size + wire::kDownloadDataSize - 1) / wire::kDownloadDataSize;
}

struct Task {
  std::string address;
  int rounds;
  std::size_t size;  // of the recording; 0: none
};

void expectGood(const MaybeError& error) {
  if (error) throw std::runtime_error(error->localizedDescription());
}

/// Each does the same three things.
class ThroughAdapter {
 public:
  explicit ThroughAdapter(const std::string& address)
      : device_(bluez::Device::create(scheduler_, address)), arrived_(scheduler_->semaphore("arrived")) {}

  void connect() { expectGood(device_->connect()); }
  void prepare() {
    device_->setEvents([](auto&&...) {},
                       [this](auto&&...) {
                         if (++values_ == awaited_) arrived_->signal();
                       });
    for (const char* uuid : {wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY, wire::CHARACTERISTIC_NOTIFY})
      device_->peripheral()->setNotifyValue(true, find(uuid));
    ask();
  }
  void ask() {
    await(1, wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE, wire::statusRequest(wire::StatusQuery::power));
  }
  void download(std::size_t size) {
    await(packetsOf(size), wire::CHARACTERISTIC_WRITE, wire::downloadRequest(1, 0));
  }

 private:
  std::shared_ptr<Characteristic> find(const char* uuid) const {
    for (const auto& each : device_->characteristics()) {
      if (each->UUID() == Uuid::fromString(uuid)) return each;
    }
    throw std::runtime_error(std::string("The recorder has no characteristic ") + uuid);
  }
  void await(std::size_t count, const char* uuid, const Bytes& frame) {
    awaited_ = values_ + count;
    device_->peripheral()->writeValue(frame, find(uuid), WriteType::withResponse);
    if (!arrived_->wait(std::chrono::minutes(5))) throw std::runtime_error("Notifications are missing");
  }

  const std::shared_ptr<Scheduler> scheduler_ = threadScheduler();
  const std::shared_ptr<bluez::Device> device_;
  const std::shared_ptr<Semaphore> arrived_;
  std::atomic<std::size_t> values_ = 0, awaited_ = 0;
};

class ThroughFacade {
 public:
  explicit ThroughFacade(const std::string& address)
      : device_(bluez::Device::create(threadScheduler(), address)) {}

  void connect() { expectGood(device_->connect()); }
  void prepare() {
    device_->attach(helper_);
    ask();
  }
  void ask() {
    if (helper_->getPower() <= 0) throw std::runtime_error("The facade got no battery level");
  }
  void download(std::size_t size) {
    std::promise<MaybeError> completed;
    helper_->downloadFirstFlashFile(kFile, nullptr,
                                    [&](const MaybeError& error) { completed.set_value(error); });
    expectGood(completed.get_future().get());
    if (std::filesystem::file_size(kFile) < size) throw std::runtime_error("The download is not whole");
  }

 private:
  const std::shared_ptr<bluez::Device> device_;
  const std::shared_ptr<KWTBluetoothHelper> helper_ = KWTBluetoothHelper::create();
};

class ThroughSession {
 public:
  explicit ThroughSession(const std::string& address)
      : session_(
            session::Session::create(session::linkOver(bluez::Device::create(threadScheduler(), address)))) {}

  void connect() { expectGood(session_->connect().wait()); }
  void prepare() { ask(); }
  void ask() { expectGood(session_->battery().wait()); }
  void download(std::size_t size) {
    const auto saved = session_->download(kFile, session::DownloadOptions().keep()).wait();
    expectGood(saved);
    if (saved->recording.bytes != size) throw std::runtime_error("The download is not whole");
  }

 private:
  static void expectGood(const auto& result) {
    if (!result) throw std::runtime_error(result.error().text());
  }

  const std::shared_ptr<session::Session> session_;
};

template <class Client>
void run(const Task& task) {
  std::filesystem::remove(kFile);
  const Effort connecting;
  Client client(task.address);
  client.connect();
  tell("services_ms", connecting.seconds() * 1e3);
  client.prepare();

  const Effort asking;
  for (int i = 0; i < task.rounds; ++i) client.ask();
  tellRounds(asking, task.rounds);

  const Effort streaming;
  if (task.size > 0) {
    client.download(task.size);
    tellStream(streaming, packetsOf(task.size));
  }
  tellMemory();
  if (const auto content = internal::dataOfFile(kFile))
    tell("crc", internal::crc32Value(std::span(*content).first(task.size)));
  std::filesystem::remove(kFile);
}

}  // namespace
}  // namespace kwtsdk::bench

int main(int count, char** arguments) try {
  using namespace kwtsdk::bench;
  if (count != 5)
    throw std::runtime_error("usage: bluetooth-adapter ADDRESS ROUNDS BYTES adapter|facade|session");
  const Task task{arguments[1], std::stoi(arguments[2]), std::stoul(arguments[3])};
  const std::string way = arguments[4];
  const auto work = way == "adapter"  ? run<ThroughAdapter>
                    : way == "facade" ? run<ThroughFacade>
                                      : run<ThroughSession>;
  work(task);
} catch (const std::exception& failure) {
  std::cerr << "bluetooth-adapter: " << failure.what() << '\n';
  return 1;
}
