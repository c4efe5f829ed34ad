// The same for every operation of the facade.

#include <gtest/gtest.h>

#include "tests/scarcity/scarcity.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {
namespace {

/// What the host brings has memory enough.
class SparedPeripheral : public gatt::ForwardingPeripheral {
 public:
  using ForwardingPeripheral::ForwardingPeripheral;
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType type) override {
    const Counting spared(false);
    ForwardingPeripheral::writeValue(value, to, type);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& of) override {
    const Counting spared(false);
    ForwardingPeripheral::setNotifyValue(enabled, of);
  }
};

struct ScarceHost : private TemporaryFolder, SimHost {
  explicit ScarceHost(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : SimHost(virtualTime, {}, nullptr, nullptr, scarceScheduler(virtualTime)), scheduler(*virtualTime) {
    helper->setConnectedPeripheral(std::make_shared<SparedPeripheral>(link->peripheral()));
    link->setEvents(counted(&KWTBluetoothHelper::didWriteValueForCharacteristic),
                    counted(&KWTBluetoothHelper::didUpdateValueForCharacteristic));
  }
  template <class Event>
  sim::SimulatedLink::Event counted(Event event) {
    return [this, event](const auto& from, const auto& characteristic, const MaybeError& error) {
      const Counting counts;
      (*helper.*event)(from, characteristic, error);
    };
  }
  using TemporaryFolder::path;
  std::string file() const { return path() + "/file"; }
  /// The host's own part of it is spared.
  auto told() {
    return [take = outcome.completion()](const auto&... values) {
      const Counting spared(false);
      take(values...);
    };
  }
  std::string ended(Duration limit) {
    const Counting spared(false);
    return outcome.ended(limit);
  }
  void pause(Duration time) {
    const Counting spared(false);
    scheduler.sleep(time);
  }

  VirtualTimeScheduler& scheduler;
};

/// An operation; its text is what it ended with.
struct FacadeOperation {
  const char* name;
  std::function<std::string(ScarceHost&)> run;
};

const std::vector<FacadeOperation>& everyFacadeOperation() {
  static const std::vector<FacadeOperation> all{
      {"power", [](ScarceHost& host) { return shown(host.helper->getPower()); }},
      {"version", [](ScarceHost& host) { return shown(host.helper->getFirmwareVersion()); }},
      {"capacity", [](ScarceHost& host) { return shown(host.helper->getCapacity()); }},
      {"count", [](ScarceHost& host) { return shown(host.helper->getFileNumAndFirstId()); }},
      {"info", [](ScarceHost& host) { return shown(host.helper->getFileInfo(1)); }},
      {"notice", [](ScarceHost& host) { return shown(host.helper->notifyDownloadSuccess()); }},
      {"powerCompletion",
       [](ScarceHost& host) {
         host.helper->getPower(host.told());
         return host.ended(10s);
       }},
      {"list",
       [](ScarceHost& host) {
         host.helper->getFlashFileList(host.told());
         return host.ended(60s);
       }},
      {"download",
       [](ScarceHost& host) {
         host.helper->downloadFirstFlashFile(host.file(), nullptr, host.told());
         return host.ended(60s);
       }},
      {"remove",
       [](ScarceHost& host) {
         host.helper->deleteFirstFlashFile(host.told());
         return host.ended(60s);
       }},
      {"record",
       [](ScarceHost& host) {
         host.helper->startRecordWithType(0, host.file(), host.told());
         return host.ended(10s);
       }},
      {"stop",
       [](ScarceHost& host) {
         host.helper->startRecordWithType(0, host.file(), host.told());
         if (const auto started = host.ended(10s); started != "ok") return started;
         host.helper->stopRecord(host.told());
         return host.ended(10s);
       }},
      {"update",
       [](ScarceHost& host) {
         writeFile(host.file(), text(recordingOf(3016)));
         host.helper->updateFirmware(host.file(), nullptr, host.told());
         return host.ended(60s);
       }},
  };
  return all;
}

std::uint64_t runFacade(const Scarcity& scarcity, const FacadeOperation& operation) {
  std::uint64_t requests = 0;
  play<ScarceHost>([&](ScarceHost& host) {
    host.store->add(recordingOf(32768));
    scarcity.begin(operation.name);
    std::string ended;
    try {
      const Counting counts;
      ended = operation.run(host);
    } catch (const std::exception& thrown) {
      ended = thrown.what();
    }
    requests = Scarcity::end();
    EXPECT_TRUE(scarcity.isLasting || ended != "not ended");
    if (operation.name != std::string("download")) {  // which the watchdog ends, at the latest
      host.helper->setCompletionBlock(nullptr);
      host.helper->setWriteDataBlock(nullptr);
    }
    host.link->disconnect();
    host.scheduler.sleep(20s);
    host.link->connect();
    EXPECT_EQ(host.helper->getPower(), 87);
  });
  return requests;
}

class FacadeScarcity : public ::testing::TestWithParam<Scarcity> {};
TEST_P(FacadeScarcity, EndsWellOrSaysSo) { atEachRequest(GetParam(), everyFacadeOperation(), runFacade); }
INSTANTIATE_TEST_SUITE_P(All, FacadeScarcity,
                         ::testing::Values(Scarcity{Scarcity::Of::memory, 0, false},
                                           Scarcity{Scarcity::Of::memory, 0, true},
                                           Scarcity{Scarcity::Of::threads, 0, false},
                                           Scarcity{Scarcity::Of::threads, 0, true}));

}  // namespace
}  // namespace kwtsdk::testing
