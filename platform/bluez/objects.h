#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <kwtsdk/bluez/scanner.h>
#include <kwtsdk/peripheral.h>
#include <kwtsdk/uuid.h>

#include "platform/bluez/message.h"

namespace kwtsdk::bluez {

inline constexpr const char* kAdapter = "org.bluez.Adapter1";
inline constexpr const char* kDevice = "org.bluez.Device1";
inline constexpr const char* kCharacteristic = "org.bluez.GattCharacteristic1";
inline constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
inline constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";

/// A device's part of BlueZ's paths: "dev_00_1A_7D_DA_71_13".
std::string pathPartOf(std::string address);

/// BlueZ's objects by path, as far as the adapter needs them. One thread at a time.
class Objects {
 public:
  /// `device` is a device's part of paths: what belongs to others is skipped, as costly as it is to read.
  /// Empty: nothing is.
  explicit Objects(std::string device) : device_(std::move(device)) {}

  bool isWanted(const std::string& path) const;

  // From messages of BlueZ. They throw BluezError.
  void add(const std::string& path, Reader& interfaces);
  void remove(const std::string& path, Reader& interfaces);
  void set(const std::string& path, const std::string& interface, Reader& values);
  void change(const std::string& path, const std::string& interface, Reader& values);  // where it is known
  void invalidate(const std::string& path, const std::string& interface, Reader& names);
  void clear() { objects_.clear(); }

  /// The path of the adapter of that name, or, for an empty one, of the first that has power. Throws
  /// BluezError.
  std::string usableAdapter(const std::string& name) const;

  /// Throws BluezError when the adapter was removed or switched off.
  void expectPower(const std::string& adapter) const;

  /// The path of an adapter's device; empty when it knows none of this address.
  std::string deviceAt(const std::string& adapter, const std::string& address) const;

  /// Those that an adapter hears now.
  std::vector<FoundDevice> heardBy(const std::string& adapter) const;

  /// A property that is true; false also when there is no such object.
  bool isTrue(const std::string& path, const char* interface, const char* property) const;

  struct Characteristic {
    std::string path;
    Uuid uuid;
    std::uint32_t properties;
    std::size_t mtu;        // of the connection; 0 when not told
    bool offersDescriptor;  // for its notifications
  };
  std::vector<Characteristic> characteristicsOf(const std::string& device) const;

 private:
  using Value = std::variant<bool, std::int16_t, std::uint16_t, std::string, std::vector<std::string>>;
  using Interface = std::map<std::string, Value>;

  static void read(Reader& values, Interface& interface);
  const Interface* find(const std::string& path, const char* interface) const;

  std::string device_;
  std::map<std::string, std::map<std::string, Interface>> objects_;
};

}  // namespace kwtsdk::bluez
