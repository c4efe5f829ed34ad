#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <future>
#include <map>

#include <kwtsdk/scheduler.h>

#include "platform/bluez/objects.h"

namespace kwtsdk::testing {

/// The D-Bus side of the fake BlueZ: one name on the bus after the other. Everything is done on a thread of
/// its own, but for what the bus's thread reads of properties.
class FakeBus {
 public:
  using Properties = std::map<std::string, sdbus::Variant>;
  using Object = std::unique_ptr<sdbus::IObject>;
  using Connection = std::shared_ptr<sdbus::IConnection>;
  struct Call {
    Connection connection;
    std::string method, path;
    std::function<void(const Call&)> returnResults = {};
    std::function<void(const sdbus::Error&)> returnError = {};
    Bytes value = {};  // of writes
    bool request = false;
    sdbus::UnixFd descriptor = {};  // to return
  };
  using CallPtr = std::shared_ptr<Call>;

  FakeBus(Scheduler& scheduler, std::function<void(const CallPtr&)> onCall)
      : scheduler_(scheduler), onCall_(std::move(onCall)), thread_(scheduler.serialQueue("fake BlueZ")) {}

  using Work = std::function<void()>;
  void post(Work work) {
    thread_->async([work = std::move(work)] { withoutBusErrors(work); });
  }
  void run(const Work& work) {  // and wait for it
    std::packaged_task<void()> task(work);
    thread_->async([&task] { task(); });
    task.get_future().get();
  }

  // ---- On the thread ----

  void start(const Work& addObjects) {
    connection_ = sdbus::createSystemBusConnection();
    connection_->addObjectManager("/", sdbus::floating_slot);
    addObjects();
    connection_->requestName("org.bluez");
    bus_ = scheduler_.serialQueue("fake BlueZ's bus");
    bus_->async([connection = connection_.get()] {
      withoutBusErrors([connection] { connection->enterEventLoop(); });
    });
  }
  void end(const Work& removeObjects) {
    connection_->leaveEventLoop();
    bus_ = nullptr;
    removeObjects();
    connection_ = nullptr;
  }
  bool isStarted() const { return connection_ != nullptr; }

  Object object(const std::string& path) { return sdbus::createObject(*connection_, path); }

  static void addProperty(const Object& object, const char* interface, const char* name, auto getter) {
    object->registerProperty(name).onInterface(interface).withGetter(getter);
  }
  template <class... Arguments>
  void addMethods(const Object& object, const char* interface, const std::vector<const char*>& methods) {
    for (const char* const method : methods) {
      auto take = [this, method, connection = std::weak_ptr(connection_), path = object->getObjectPath()](
                      sdbus::Result<>&& result, const Arguments&... arguments) {
        const auto call = callOf({connection.lock(), method, path}, std::move(result),
                                 [](auto& its, auto&) { its.returnResults(); });
        read(*call, arguments...);
        pass(call);
      };
      object->registerMethod(method).onInterface(interface).implementedAs(std::move(take));
    }
  }
  void addAcquireNotify(const Object& object, const char* interface, std::uint16_t mtu) {
    using Result = sdbus::Result<sdbus::UnixFd, std::uint16_t>;
    auto take = [this, mtu, connection = std::weak_ptr(connection_), path = object->getObjectPath()](
                    Result&& result, const Properties&) {
      pass(callOf({connection.lock(), "AcquireNotify", path}, std::move(result),
                  [mtu](auto& its, const Call& call) { its.returnResults(call.descriptor, mtu); }));
    };
    object->registerMethod("AcquireNotify").onInterface(interface).implementedAs(std::move(take));
  }

  static void answer(Call& call, const std::string& error) {
    error.empty() ? call.returnResults(call) : call.returnError(sdbus::Error(error, "as the test asks"));
  }

  static void publish(const Object& object) {
    object->finishRegistration();
    object->emitInterfacesAddedSignal();
  }
  static void withdraw(Object& object) {
    if (object) object->emitInterfacesRemovedSignal();
    object = nullptr;
  }
  static void tell(const Object& object, const char* interface, const Properties& changed,
                   const std::vector<std::string>& invalidated = {}) {
    auto signal = object->createSignal(bluez::kProperties, "PropertiesChanged");
    signal << std::string(interface) << changed << invalidated;
    object->emitSignal(signal);
  }

 private:
  static void withoutBusErrors(const Work& work) {
    try {
      work();
    } catch (const sdbus::Error&) {  // the bus has ended
    }
  }

  template <class Result, class Return>
  static CallPtr callOf(Call call, Result&& result, Return returnResults) {
    const auto shared = std::make_shared<std::decay_t<Result>>(std::forward<Result>(result));
    call.returnResults = [shared, returnResults](const Call& its) { returnResults(*shared, its); };
    call.returnError = [shared](const sdbus::Error& error) { shared->returnError(error); };
    return std::make_shared<Call>(std::move(call));
  }
  void pass(const CallPtr& call) {
    post([this, call] {
      if (call->connection == connection_) onCall_(call);
    });
  }

  static void read(Call&, const auto&...) {}
  static void read(Call& call, const Bytes& value, const Properties& options) {
    call.value = value;
    call.request = options.at("type").get<std::string>() == "request";
  }

  Scheduler& scheduler_;
  const std::function<void(const CallPtr&)> onCall_;
  Connection connection_;
  std::shared_ptr<SerialQueue> thread_, bus_;
};

}  // namespace kwtsdk::testing
