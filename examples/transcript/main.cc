// Prints the frames that pass between a host and a simulated recorder: "> " requests, "< " what answers them.
// On virtual time, so that it ends at once and prints the same in every run.
#include <cstdio>
#include <filesystem>
#include <string>

#include <kwtsdk/gatt/peripheral.h>
#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/simulated_link.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
namespace sim = kwtsdk::sim;

constexpr std::size_t kBlock = sim::RecordingStore::kBlockSize;

void print(const char* direction, const kwtsdk::Bytes& frame) {
  std::string line = direction;
  for (const std::uint8_t byte : frame) {
    constexpr const char* digits = "0123456789abcdef";
    line += {digits[byte >> 4], digits[byte & 15]};
  }
  std::puts(line.c_str());
}

// Recordings 10 and 11, made on 17 May 2024 at 09:30:00, of one block each.
std::shared_ptr<sim::RecorderModel> recorder() {
  const auto store = std::make_shared<sim::MemoryStore>(10);
  kwtsdk::Bytes content(kBlock);
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<std::uint8_t>(i);
  const std::chrono::local_days day{std::chrono::year(2024) / 5 / 17};
  for (int i = 0; i < 2; ++i) store->add(content, day + 9h + 30min);

  auto model = std::make_shared<sim::RecorderModel>(store);
  model->setReplyFilter([](const kwtsdk::Bytes&, kwtsdk::Bytes reply) {
    print("< ", reply);
    return reply;
  });
  return model;
}

// Prints what the host writes.
class PrintingPeripheral : public kwtsdk::gatt::ForwardingPeripheral {
 public:
  using ForwardingPeripheral::ForwardingPeripheral;
  void writeValue(const kwtsdk::Bytes& value, const std::shared_ptr<kwtsdk::Characteristic>& to,
                  kwtsdk::WriteType type) override {
    print("> ", value);
    ForwardingPeripheral::writeValue(value, to, type);
  }
};

void useEverything(kwtsdk::KWTBluetoothHelper& helper, kwtsdk::Scheduler& scheduler, const fs::path& folder) {
  helper.getPower();
  helper.getFirmwareVersion();
  helper.getCapacity();
  helper.getFileNumAndFirstId();
  helper.getFileInfo(10);
  helper.deleteFile(11, nullptr);  // refused: not the first
  scheduler.sleep(1s);
  helper.downloadFirstFlashFile(folder / "whole", nullptr, nullptr);
  scheduler.sleep(1min);

  // Nothing is missing from this file: the recorder answers with the end marker alone.
  const auto file = kwtsdk::getFileHandleForWrite(folder / "complete");
  const kwtsdk::Bytes block(kBlock);
  file->write(block.data(), block.size());
  helper.downloadFirstFlashFile(folder / "complete", nullptr, nullptr);
  scheduler.sleep(1min);
  helper.getFileNumAndFirstId();  // none is left
}

void record(kwtsdk::KWTBluetoothHelper& helper, kwtsdk::Scheduler& scheduler, std::int64_t type,
            const fs::path& file) {
  helper.startRecordWithType(type, file, nullptr);
  scheduler.sleep(100ms);
}

// Recordings of every type, ended by the host, the key and a call; and starts that the recorder refuses.
void recordEverything(kwtsdk::KWTBluetoothHelper& helper, kwtsdk::Scheduler& scheduler,
                      sim::RecorderModel& model, const fs::path& file) {
  for (const std::int64_t type : {0, 1, 3, 4}) {
    record(helper, scheduler, type, file);
    scheduler.sleep(10ms);  // between two packets, so that none meets the stop
    helper.stopRecord(nullptr);
    scheduler.sleep(100ms);
  }
  record(helper, scheduler, 2, file);  // refused: in no call
  record(helper, scheduler, 0, file);
  model.pressKey();
  scheduler.sleep(100ms);
  record(helper, scheduler, 0, file);
  model.setInCall(true);
  scheduler.sleep(100ms);
  record(helper, scheduler, 0, file);  // refused: in a call
  record(helper, scheduler, 2, file);
}

// An update to version 2.5.1.
void update(kwtsdk::KWTBluetoothHelper& helper, kwtsdk::Scheduler& scheduler, const fs::path& folder) {
  kwtsdk::Bytes image(96);
  for (std::size_t i = 0; i < image.size(); ++i) image[i] = static_cast<std::uint8_t>(i);
  for (const std::uint8_t byte : {2, 5, 1, 0}) image.push_back(byte);
  const auto file = kwtsdk::getFileHandleForWrite(folder / "image");
  file->write(image.data(), image.size());
  helper.updateFirmware(folder / "image", nullptr, nullptr);
  scheduler.sleep(1min);
  helper.getFirmwareVersion();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || !fs::is_directory(argv[1])) {
    std::fputs("usage: transcript FOLDER    the folder takes the downloads\n", stderr);
    return 2;
  }
  const auto scheduler = sim::VirtualTimeScheduler::create(1);
  scheduler->run([&] {
    const auto model = recorder();
    const auto link = sim::SimulatedLink::create(scheduler, model);
    kwtsdk::Platform platform;
    platform.scheduler = scheduler;
    platform.settings = kwtsdk::fileSettings(fs::path(argv[1]) / "settings");
    const auto helper = kwtsdk::KWTBluetoothHelper::create(platform);
    link->attach(helper);
    helper->setConnectedPeripheral(std::make_shared<PrintingPeripheral>(link->peripheral()));
    useEverything(*helper, *scheduler, argv[1]);
    update(*helper, *scheduler, argv[1]);
    recordEverything(*helper, *scheduler, *model, fs::path(argv[1]) / "live");
  });
}
