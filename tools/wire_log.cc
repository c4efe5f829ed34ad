#include "tools/wire_log.h"

#include <chrono>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>

#include "tools/frame_text.h"

namespace kwtsdk::tool {
namespace {

class WireLog final : public TrafficObserver {
 public:
  explicit WireLog(std::shared_ptr<Scheduler> scheduler)
      : scheduler_(std::move(scheduler)), began_(scheduler_->now()) {}

  void opened(const Peripheral& peripheral, const Characteristics& characteristics) override {
    tell("connected, " + std::to_string(characteristics.size()) + " characteristics, writes of up to " +
         std::to_string(peripheral.maximumWriteValueLengthForType(WriteType::withoutResponse)) + " bytes");
  }
  void subscribed(const Characteristic& characteristic, bool enabled) override {
    tell((enabled ? "subscribe to " : "unsubscribe from ") + characteristic.UUID().toString());
  }
  void written(const Characteristic& characteristic, const Bytes& frame) override {
    tellFrame("> ", characteristic, Direction::toRecorder, frame);
  }
  void acknowledged(const Characteristic&, const MaybeError& error) override {
    if (error) tell("the write failed: " + error->localizedDescription());
  }
  void notified(const Characteristic& characteristic, const Bytes& frame) override {
    tellFrame("< ", characteristic, Direction::fromRecorder, frame);
  }
  void closed() override { tell("disconnected"); }

 private:
  void tellFrame(const char* sign, const Characteristic& characteristic, Direction direction,
                 const Bytes& frame) {
    const std::string meaning = meaningOf(characteristic.UUID(), direction, frame);
    std::string line = sign;
    line.append(bytesShown(frame));
    if (!meaning.empty()) line.append("  ").append(meaning);
    tell(line);
  }

  void tell(const std::string& text) {
    std::ostringstream line;
    line << std::fixed << std::setprecision(3) << std::setw(8)
         << std::chrono::duration<double>(scheduler_->now() - began_).count() << ' ' << text << '\n';
    std::cerr << line.str();  // in one piece, since two threads tell
  }

  const std::shared_ptr<Scheduler> scheduler_;
  const Duration began_;
};

}  // namespace

std::shared_ptr<TrafficObserver> wireLog(const std::shared_ptr<Scheduler>& scheduler) {
  return std::make_shared<WireLog>(scheduler);
}

}  // namespace kwtsdk::tool
