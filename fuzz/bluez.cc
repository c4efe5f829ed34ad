// The adapter for BlueZ and a bluetoothd that answers and signals anything, late or never: no call hangs, and
// every write with response is reported once.

#include <sys/socket.h>

#include <array>
#include <atomic>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/bluez/scanner.h>

#include "fuzz/damaged.h"
#include "fuzz/input.h"
#include "tests/bluez/fake_bus.h"
#include "tests/bluez/moved_scheduler.h"
#include "tests/bluez/private_bus.h"

namespace kwtsdk::fuzz {
namespace {

using namespace std::literals;
using sdbus::Variant;
using testing::FakeBus;

constexpr const char* kAddress = "AA:BB:CC:DD:EE:FF";
constexpr std::array kPaths{"/org/bluez/hci0",
                            "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF",
                            "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF/service0001/char2",
                            "/org/bluez/hci0/dev_AA_BB_CC_DD_EE_FF/service0001/char3",
                            "/org/bluez/hci0/dev_11_22_33_44_55_66",
                            "/org/bluez/hci0/dev_11_22_33_44_55_66/service0001/char5"};
constexpr std::array kNames{"Powered", "Address", "UUIDs", "Connected", "ServicesResolved", "Value"};
constexpr std::array kErrors{"org.bluez.Error.Failed", "org.freedesktop.DBus.Error.ServiceUnknown", "a.b"};

class AnyBluez {
 public:
  AnyBluez(Scheduler& scheduler, const testing::Choices& choices)
      : choices_(choices), bus_(scheduler, [this](const FakeBus::CallPtr& call) { take(call); }) {
    bus_.run([this] {
      bus_.start([this] {
        for (std::size_t i = 0; i < kPaths.size(); ++i) add(i);
      });
    });
  }
  ~AnyBluez() {
    bus_.run([this] { bus_.end([this] { objects_ = {}; }); });
  }
  AnyBluez(const AnyBluez&) = delete;
  AnyBluez& operator=(const AnyBluez&) = delete;

 private:
  void take(const FakeBus::CallPtr& call) {
    while (choices_.below(4) == 1) disturb();
    held_.push_back(call);
    if (choices_.below(32) == 1) return;  // answered with the next
    for (const auto& each : std::exchange(held_, {})) answer(*each);
    while (choices_.below(4) == 1) disturb();
  }

  void answer(FakeBus::Call& call) {
    if (call.method == "AcquireNotify") {
      std::array<int, 2> ends{};
      require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0,
              "there are descriptors");
      stream_.reset(ends[0], sdbus::adopt_fd);
      call.descriptor.reset(ends[1], sdbus::adopt_fd);
    }
    if (call.method.ends_with("onnect")) setConnected(call.method == "Connect");
    FakeBus::answer(call, choices_.below(32) == 1 ? kErrors.at(choices_.below(kErrors.size())) : "");
  }

  void setConnected(bool is) {
    connected_ = is;
    FakeBus::tell(objects_[1], bluez::kDevice,
                  {{"Connected", Variant(is)}, {"ServicesResolved", Variant(is)}});
  }

  void disturb() {
    const std::size_t which = choices_.below(kPaths.size());
    const auto& object = objects_.at(which);
    const std::string name = kNames.at(choices_.below(kNames.size()));
    const Bytes bytes = anyBytes(choices_);
    const FakeBus::Properties values[]{{{name, Variant(bytes)}},
                                       {{name, Variant(std::string(bytes.size(), 'x'))}},
                                       {{name, Variant(static_cast<std::uint16_t>(bytes.size()))}},
                                       {{name, Variant(std::vector<std::string>{"", "no UUID"})}},
                                       {}};
    switch (choices_.below(8)) {
      case 0:
        return setConnected(false);
      case 1:  // the bus goes on to know it, as calls that are under way need
        return object->emitInterfacesRemovedSignal();
      case 2:
        return object->emitInterfacesAddedSignal();
      case 3:
        return stream_.reset();
      case 4:
      case 5:
        if (stream_.isValid()) ::send(stream_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return;
      default:
        FakeBus::tell(object, interfaceOf(which), values[choices_.below(std::size(values))], {name});
    }
  }

  static const char* interfaceOf(std::size_t which) {
    return which == 0 ? bluez::kAdapter : which % 3 == 1 ? bluez::kDevice : bluez::kCharacteristic;
  }

  void add(std::size_t which) {
    auto& made = objects_.at(which) = bus_.object(kPaths.at(which));
    const char* const interface = interfaceOf(which);
    const auto put = [&](const char* name, auto good) {
      const auto manner = choices_.below(64);
      if (manner == 1) return FakeBus::addProperty(made, interface, name, [] { return Bytes(9); });
      if (manner == 2) return FakeBus::addProperty(made, interface, name, [] { return std::string("what"); });
      if (manner != 3) FakeBus::addProperty(made, interface, name, good);
    };
    if (interface == bluez::kAdapter) {
      put("Powered", [] { return true; });
      bus_.addMethods<FakeBus::Properties>(made, interface, {"SetDiscoveryFilter"});
      bus_.addMethods(made, interface, {"StartDiscovery", "StopDiscovery"});
    } else if (interface == bluez::kDevice) {
      put("Address", [which] { return std::string(which == 1 ? kAddress : "11:22:33:44:55:66"); });
      for (const char* const name : {"Connected", "ServicesResolved"})
        put(name, [this] { return connected_.load(); });
      bus_.addMethods(made, interface, {"Connect", "Disconnect"});
    } else {
      put("UUID", [which] { return Uuid::fromString("CA2" + std::to_string(which))->toString(); });
      put("Flags", [] { return std::vector<std::string>{"write", "notify"}; });
      put("MTU", [] { return std::uint16_t(247); });
      put("NotifyAcquired", [] { return false; });
      bus_.addMethods<Bytes, FakeBus::Properties>(made, interface, {"WriteValue"});
      bus_.addMethods(made, interface, {"StartNotify", "StopNotify"});
      bus_.addAcquireNotify(made, interface, 247);
    }
    FakeBus::publish(made);
  }

  testing::Choices choices_;
  std::atomic<bool> connected_{false};  // a property
  std::array<FakeBus::Object, kPaths.size()> objects_;
  std::vector<FakeBus::CallPtr> held_;
  sdbus::UnixFd stream_;
  FakeBus bus_;  // last, so that its thread ends first
};

const Target bluezTarget("bluez", [](Input& input) {
  static const testing::PrivateBus bus;
  auto choices = input.choices();
  std::vector<std::uint64_t> acts(choices.below(8));
  for (auto& act : acts) act = choices.below(8);
  const auto clock = std::make_shared<testing::MovedScheduler>(true);
  const AnyBluez bluez(*clock, choices);
  const auto reported = clock->semaphore("reported");
  std::atomic<int> left{0};
  auto device = bluez::Device::create(clock, kAddress);
  device->setEvents(
      [&](auto&&...) { --left, reported->signal(); },
      [](auto&&, const auto& of, auto&&) { require(of->value().has_value(), "something is notified"); });
  static_cast<void>(device->connect());
  for (const auto act : acts) {
    if (act == 0) device->disconnect();
    if (act == 1) static_cast<void>(device->connect());
    if (act == 2) static_cast<void>(bluez::Scanner::create(clock)->scan(1s));
    for (const auto& each : device->characteristics()) {
      if (act > 4) device->peripheral()->setNotifyValue(act > 5, each);
      if (act < 3) continue;
      ++left;
      device->peripheral()->writeValue(Bytes(act), each, WriteType::withResponse);
    }
  }
  for (int tries = 0; left > 0 && tries < 200; ++tries) {
    if (reported->wait(20s)) continue;
    device->peripheral()->setNotifyValue(true,
                                         device->characteristics().front());  // has it look at the clock
  }
  device = nullptr;
  require(left == 0, "every write is reported once");
});

}  // namespace
}  // namespace kwtsdk::fuzz
