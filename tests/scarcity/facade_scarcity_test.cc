// The same for every operation of the facade.

#include <gtest/gtest.h>

#include "tests/scarcity/scarcity.h"
#include "tests/support/facade_operations.h"
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
  std::string ended(const CompletionForm& form) {
    form.begin(*helper, {outcome.completion()}, file(), 1);
    const Counting spared(false);
    return outcome.ended(60s);
  }

  VirtualTimeScheduler& scheduler;
};

/// An operation; its text is what it ended with.
struct FacadeOperation {
  const char* name;
  std::function<std::string(ScarceHost&)> run;
};

std::vector<FacadeOperation> everyFacadeOperation() {
  std::vector<FacadeOperation> all;
  for (const BlockingForm& form : blockingForms())
    all.push_back({form.name, [&form](ScarceHost& host) { return form.call(*host.helper); }});
  for (const CompletionForm& form : completionForms()) {
    all.push_back({form.name, [&form](ScarceHost& host) {
                     if (form.name != "stop"s) return host.ended(form);
                     const std::string started = host.ended(completionForm("record"));
                     return started == "ok" ? host.ended(form) : started;
                   }});
  }
  return all;
}

std::uint64_t runFacade(const Scarcity& scarcity, const FacadeOperation& operation) {
  std::uint64_t requests = 0;
  play<ScarceHost>([&](ScarceHost& host) {
    host.store->add(recordingOf(32768));
    if (operation.name == "update"s) writeFile(host.file(), recordingOf(3016));
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
    if (operation.name != "download"s) {  // which the watchdog ends, at the latest
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
INSTANTIATE_TEST_SUITE_P(All, FacadeScarcity, everyScarcity());

}  // namespace
}  // namespace kwtsdk::testing
