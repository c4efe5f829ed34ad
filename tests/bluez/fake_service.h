#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <kwtsdk/sim/simulated_link.h>

#include "tests/bluez/journal.h"

namespace kwtsdk::testing {

inline constexpr const char* kRecorderAddress = "AA:BB:CC:DD:EE:FF";

/// How the fake BlueZ behaves, from one life of it to the next.
struct FakeState {
  bool adapter = true, power = true;
  bool heard = true;    // the recorder; while it is not, it accepts no connection either
  bool resolve = true;  // its services, after a connection
  std::uint16_t mtu = 247;
  std::string lacking = "none";                // a part of the UUIDs that the recorder has not
  std::map<std::string, std::string> refused;  // methods, with the error's D-Bus name
  std::set<std::string> held;                  // methods that get no answer for now
};

/// One life of a fake bluetoothd with the adapter hci0, from its start to its end. One thread. The journal
/// gets "METHOD" or "METHOD UUID" when a call comes and "METHOD answered"; "overlap" for a GATT operation
/// that comes while another is under way.
class FakeService {
 public:
  FakeService(const FakeState& state, sim::SimulatedLink& link, Journal& journal);
  ~FakeService() { link_.disconnect(); }
  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;

  sdbus::IConnection& connection() { return *connection_; }

  void follow();  // after the state has changed

  // Of the link.
  void didWrite(const Characteristic& source, const MaybeError& error);
  void didUpdate(const Characteristic& source, const Bytes& value);
  void lose();

 private:
  using Properties = std::map<std::string, sdbus::Variant>;
  using Object = std::unique_ptr<sdbus::IObject>;
  struct Call {
    std::string method;
    sdbus::Result<> result;
  };
  using CallPtr = std::shared_ptr<Call>;
  struct HeldCall {
    CallPtr call;
    std::function<void()> work;
  };
  struct Gatt {
    std::shared_ptr<Characteristic> characteristic;
    Object object;
    CallPtr running = nullptr;
    bool notifying = false;
  };

  template <class... Arguments>
  void addMethod(const Object& object, const char* interface, const char* method, auto work);
  void take(const CallPtr& call, const std::string& detail, std::function<void()> work);
  void answer(const CallPtr& call, const std::string& error = {});
  bool isHeld(const std::string& method) const;
  void failHeld();

  void publish(const Object& object);
  void withdraw(Object& object);
  void tell(const Object& object, const char* interface, const Properties& changed,
            const std::vector<std::string>& invalidated = {});

  void addAdapter();
  void removeAdapter();
  Object device(const std::string& address, bool heard);
  void discover(bool on);
  void hear();
  void connect(const CallPtr& call);
  void resolve();
  void addGatt(const std::shared_ptr<Characteristic>& characteristic);
  void takeGatt(Gatt& gatt, const CallPtr& call, std::function<void()> work);
  void write(Gatt& gatt, const CallPtr& call, const Bytes& value, const Properties& options);
  void setNotify(Gatt& gatt, const CallPtr& call, bool enabled);
  Gatt* gattOf(const Characteristic& characteristic);

  const FakeState& state_;
  sim::SimulatedLink& link_;
  Journal& journal_;
  const std::unique_ptr<sdbus::IConnection> connection_;
  bool power_ = false, discovering_ = false, connected_ = false, resolved_ = false;
  std::map<std::string, std::vector<HeldCall>> held_;
  Object adapter_, stranger_, recorder_;  // the stranger is known from earlier and not heard now
  std::vector<std::unique_ptr<Gatt>> gatts_;
};

}  // namespace kwtsdk::testing
