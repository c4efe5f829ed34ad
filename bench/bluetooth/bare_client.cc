// The yardstick of scripts/bench-bluetooth: the same operations with nothing between them and the bus.
// bluetooth-bare ADDRESS ROUNDS BYTES acquire|notify

#include <poll.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>

#include <kwtsdk/bytes.h>
#include <kwtsdk/uuid.h>

#include "bench/bluetooth/figures.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::bench {
namespace {

constexpr const char *kBluez = "org.bluez", *kDevice = "org.bluez.Device1",
                     *kCharacteristic = "org.bluez.GattCharacteristic1";

int good(int result) {
  if (result < 0) throw std::runtime_error(std::strerror(-result));
  return result;
}

class BareClient {
 public:
  BareClient(std::string address, bool acquires) : acquires_(acquires) {
    std::ranges::replace(address, ':', '_');
    device_ = "/org/bluez/hci0/dev_" + address;
    good(sd_bus_open_system(&bus_));
    const auto onSignal = [](sd_bus_message* signal, void* client, sd_bus_error*) {
      static_cast<BareClient*>(client)->take(signal);
      return 0;
    };
    good(sd_bus_add_match(bus_, nullptr, "type='signal',sender='org.bluez'", onSignal, this));
  }
  ~BareClient() {
    for (const auto& [fd, uuid] : descriptors_) ::close(fd);
    sd_bus_flush_close_unref(bus_);
  }
  BareClient(const BareClient&) = delete;
  BareClient& operator=(const BareClient&) = delete;

  void connect() {
    call(device_, kDevice, "Connect");
    waitUntil([this] { return isResolved_; });
    load();
  }
  void disconnect() { call(device_, kDevice, "Disconnect"); }

  void subscribe(const char* uuid) {
    const std::string path = pathOf(uuid);
    if (!acquires_) return call(path, kCharacteristic, "StartNotify");
    sd_bus_message* reply = nullptr;
    int fd = -1;
    good(sd_bus_call_method(bus_, kBluez, path.c_str(), kCharacteristic, "AcquireNotify", nullptr, &reply,
                            "a{sv}", 0));
    good(sd_bus_message_read(reply, "h", &fd));
    descriptors_.emplace(::dup(fd), uuid);
    sd_bus_message_unref(reply);
  }

  /// The acknowledgement is waited for with what `isOver` waits for.
  void write(const char* uuid, const Bytes& frame, const std::function<bool()>& isOver) {
    sd_bus_message* request = nullptr;
    good(sd_bus_message_new_method_call(bus_, &request, kBluez, pathOf(uuid).c_str(), kCharacteristic,
                                        "WriteValue"));
    good(sd_bus_message_append_array(request, 'y', frame.data(), frame.size()));
    good(sd_bus_message_append(request, "a{sv}", 1, "type", "s", "request"));
    bool isAcknowledged = false;
    const auto onAnswer = [](sd_bus_message*, void* acknowledged, sd_bus_error*) {
      *static_cast<bool*>(acknowledged) = true;
      return 0;
    };
    good(sd_bus_call_async(bus_, nullptr, request, onAnswer, &isAcknowledged, 0));
    sd_bus_message_unref(request);
    waitUntil([&] { return isAcknowledged && isOver(); });
  }

  std::size_t values = 0, bytes = 0;  // notified

 private:
  static std::string canonical(const char* uuid) { return Uuid::fromString(uuid).value().toString(); }
  const std::string& pathOf(const char* uuid) const { return paths_.at(canonical(uuid)); }

  void call(const std::string& path, const char* interface, const char* method) {
    good(sd_bus_call_method(bus_, kBluez, path.c_str(), interface, method, nullptr, nullptr, ""));
  }

  void waitUntil(const std::function<bool()>& condition) {
    for (;;) {
      while (good(sd_bus_process(bus_, nullptr)) > 0) {
      }
      if (condition()) return;
      std::array<pollfd, 4> polled{{{sd_bus_get_fd(bus_), POLLIN, 0}}};
      std::size_t count = 1;
      for (const auto& [fd, uuid] : descriptors_) polled.at(count++) = {fd, POLLIN, 0};
      good(::poll(polled.data(), count, -1));
      for (std::size_t i = 1; i < count; ++i) {
        if (polled.at(i).revents != 0) receive(polled.at(i).fd);
      }
    }
  }

  void receive(int fd) {
    std::array<std::uint8_t, 1024> value;
    for (ssize_t size = 0; (size = ::recv(fd, value.data(), value.size(), MSG_DONTWAIT)) > 0;) {
      ++values;
      bytes += static_cast<std::size_t>(size);
    }
  }

  /// Where the characteristics are, which are not announced each time.
  void load() {
    sd_bus_message* reply = nullptr;
    const char* path = nullptr;
    good(sd_bus_call_method(bus_, kBluez, "/", "org.freedesktop.DBus.ObjectManager", "GetManagedObjects",
                            nullptr, &reply, ""));
    good(sd_bus_message_enter_container(reply, 'a', "{oa{sa{sv}}}"));
    while (good(sd_bus_message_enter_container(reply, 'e', "oa{sa{sv}}")) > 0) {
      good(sd_bus_message_read(reply, "o", &path));
      if (std::string_view(path).starts_with(device_)) {
        takeInterfaces(reply, path);
      } else {
        good(sd_bus_message_skip(reply, "a{sa{sv}}"));
      }
      good(sd_bus_message_exit_container(reply));
    }
    sd_bus_message_unref(reply);
  }

  void takeInterfaces(sd_bus_message* message, const std::string& path) {
    good(sd_bus_message_enter_container(message, 'a', "{sa{sv}}"));
    while (good(sd_bus_message_enter_container(message, 'e', "sa{sv}")) > 0) {
      takeProperties(message, path);
      good(sd_bus_message_exit_container(message));
    }
    good(sd_bus_message_exit_container(message));
  }

  void take(sd_bus_message* signal) {
    const std::string path = sd_bus_message_get_path(signal);
    if (path.starts_with(device_) &&
        sd_bus_message_is_signal(signal, "org.freedesktop.DBus.Properties", "PropertiesChanged") > 0) {
      takeProperties(signal, path);
    }
  }

  void takeProperties(sd_bus_message* message, const std::string& path) {
    const char *interface = nullptr, *name = nullptr, *text = nullptr;
    good(sd_bus_message_read(message, "s", &interface));
    const bool isDevice = std::strcmp(interface, kDevice) == 0;
    if (!isDevice && std::strcmp(interface, kCharacteristic) != 0)
      return void(good(sd_bus_message_skip(message, "a{sv}")));
    good(sd_bus_message_enter_container(message, 'a', "{sv}"));
    while (good(sd_bus_message_enter_container(message, 'e', "sv")) > 0) {
      good(sd_bus_message_read(message, "s", &name));
      const std::string_view property = name;
      if (property == "UUID" && !isDevice) {
        good(sd_bus_message_read(message, "v", "s", &text));
        paths_[canonical(text)] = path;
      } else if (property == "ServicesResolved") {
        int resolved = 0;
        good(sd_bus_message_read(message, "v", "b", &resolved));
        isResolved_ = resolved != 0;
      } else if (property == "Value") {
        const void* value = nullptr;
        std::size_t size = 0;
        good(sd_bus_message_enter_container(message, 'v', "ay"));
        good(sd_bus_message_read_array(message, 'y', &value, &size));
        good(sd_bus_message_exit_container(message));
        ++values;
        bytes += size;
      } else {
        good(sd_bus_message_skip(message, "v"));
      }
      good(sd_bus_message_exit_container(message));
    }
    good(sd_bus_message_exit_container(message));
  }

  const bool acquires_;
  std::string device_;
  sd_bus* bus_ = nullptr;
  bool isResolved_ = false;
  std::map<std::string, std::string> paths_;  // by UUID
  std::map<int, const char*> descriptors_;
};

void run(const std::string& address, int rounds, std::size_t size, bool acquires) {
  const Effort connecting;
  BareClient client(address, acquires);
  client.connect();
  tell("services_ms", connecting.seconds() * 1e3);
  client.subscribe(wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY);
  client.subscribe(wire::CHARACTERISTIC_NOTIFY);

  const Effort asking;
  for (int i = 0; i < rounds; ++i) {
    client.write(wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE, wire::statusRequest(wire::StatusQuery::power),
                 [&, until = client.values + 1] { return client.values >= until; });
  }
  tellRounds(asking, rounds);

  const std::size_t packets = (size + wire::kDownloadDataSize - 1) / wire::kDownloadDataSize;
  const Effort streaming;
  if (size > 0) {
    client.write(wire::CHARACTERISTIC_WRITE, wire::downloadRequest(1, 0),
                 [&, until = client.values + packets] { return client.values >= until; });
    tellStream(streaming, packets);
  }
  tellMemory();
  client.disconnect();
}

}  // namespace
}  // namespace kwtsdk::bench

int main(int count, char** arguments) try {
  if (count != 5) throw std::runtime_error("usage: bluetooth-bare ADDRESS ROUNDS BYTES acquire|notify");
  kwtsdk::bench::run(arguments[1], std::stoi(arguments[2]), std::stoul(arguments[3]),
                     std::string_view(arguments[4]) == "acquire");
} catch (const std::exception& failure) {
  std::cerr << "bluetooth-bare: " << failure.what() << '\n';
  return 1;
}
