#include "platform/bluez/objects.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "platform/bluez/bluez_error.h"

namespace kwtsdk::bluez {
namespace {

constexpr std::int16_t kUnknownSignal = 127;

template <class T>
T valueIn(const auto& interface, const char* property, T missing) {
  const auto found = interface.find(property);
  if (found == interface.end()) return missing;
  const T* const value = std::get_if<T>(&found->second);
  return value == nullptr ? missing : *value;
}

std::uint32_t propertiesOf(const std::vector<std::string>& flags) {
  constexpr std::array<std::pair<const char*, std::uint32_t>, 3> known{{
      {"write", characteristic_property::write},
      {"notify", characteristic_property::notify},
      {"indicate", characteristic_property::indicate},
  }};
  std::uint32_t properties = 0;
  for (const auto& [name, bit] : known) {
    if (std::ranges::find(flags, name) != flags.end()) properties |= bit;
  }
  return properties;
}

std::vector<Uuid> uuidsOf(const std::vector<std::string>& texts) {
  std::vector<Uuid> uuids;
  for (const auto& text : texts) {
    if (const auto uuid = Uuid::fromString(text)) uuids.push_back(*uuid);
  }
  return uuids;
}

bool isBelow(const std::string& path, const std::string& parent) {
  return path.size() > parent.size() && path.starts_with(parent) && path[parent.size()] == '/';
}

using Value = std::variant<bool, std::int16_t, std::uint16_t, std::string, std::vector<std::string>>;

constexpr std::array<std::string_view, 11> kNeeded{
    "Powered", "Address",          "Name",  "UUIDs", "RSSI",          "Connected",
    "UUID",    "ServicesResolved", "Flags", "MTU",   "NotifyAcquired"};

/// None for a type that no needed property has.
std::optional<Value> valueOf(Reader& reader, std::string_view type) {
  if (type == "b") return reader.truth();
  if (type == "n") return reader.int16();
  if (type == "q") return reader.uint16();
  if (type == "s") return std::string(reader.text());
  if (type != "as") return std::nullopt;
  std::vector<std::string> texts;
  reader.each("s", [&] { texts.emplace_back(reader.text()); });
  return texts;
}

}  // namespace

std::string pathPartOf(std::string address) {
  std::ranges::replace(address, ':', '_');
  return "dev_" + address;
}

bool Objects::isWanted(const std::string& path) const {
  const auto device = path.find("/dev_");
  if (device_.empty() || device == std::string::npos) return true;
  const std::string_view rest = std::string_view(path).substr(device + 1);
  return rest.starts_with(device_) && (rest.size() == device_.size() || rest[device_.size()] == '/');
}

void Objects::read(Reader& values, Interface& interface) {
  values.each("{sv}", [&] {
    const std::string_view name = values.text();
    if (std::ranges::find(kNeeded, name) == kNeeded.end()) return values.skip("v");
    values.variant([&](std::string_view type) {
      auto value = valueOf(values, type);
      if (value) interface.insert_or_assign(std::string(name), std::move(*value));
      return value.has_value();
    });
  });
}

void Objects::add(const std::string& path, Reader& interfaces) {
  if (!isWanted(path)) return interfaces.skip("a{sa{sv}}");
  interfaces.each("{sa{sv}}", [&] {
    const std::string name(interfaces.text());
    if (name != kAdapter && name != kDevice && name != kCharacteristic) return interfaces.skip("a{sv}");
    read(interfaces, objects_[path][name]);
  });
}

void Objects::remove(const std::string& path, Reader& interfaces) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return;
  interfaces.each("s", [&] { object->second.erase(std::string(interfaces.text())); });
  if (object->second.empty()) objects_.erase(object);
}

void Objects::set(const std::string& path, const std::string& interface, Reader& values) {
  read(values, objects_[path][interface]);
}

void Objects::change(const std::string& path, const std::string& interface, Reader& values) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return values.skip("a{sv}");
  read(values, object->second[interface]);
}

void Objects::invalidate(const std::string& path, const std::string& interface, Reader& names) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return;
  auto& properties = object->second[interface];
  names.each("s", [&] { properties.erase(std::string(names.text())); });
}

const Objects::Interface* Objects::find(const std::string& path, const char* interface) const {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return nullptr;
  const auto found = object->second.find(interface);
  return found == object->second.end() ? nullptr : &found->second;
}

std::string Objects::usableAdapter(const std::string& name) const {
  bool known = false;
  for (const auto& [path, interfaces] : objects_) {
    if (find(path, kAdapter) == nullptr || (!name.empty() && !path.ends_with("/" + name))) continue;
    if (isTrue(path, kAdapter, "Powered")) return path;
    known = true;
  }
  throw BluezError(known ? Problem::adapterOff : Problem::noAdapter, name);
}

void Objects::expectPower(const std::string& adapter) const {
  if (find(adapter, kAdapter) == nullptr) throw BluezError(Problem::noAdapter, "it was removed");
  if (!isTrue(adapter, kAdapter, "Powered")) throw BluezError(Problem::adapterOff);
}

std::string Objects::deviceAt(const std::string& adapter, const std::string& address) const {
  for (const auto& [path, interfaces] : objects_) {
    const auto* const device = isBelow(path, adapter) ? find(path, kDevice) : nullptr;
    if (device != nullptr && valueIn<std::string>(*device, "Address", {}) == address) return path;
  }
  return {};
}

// BlueZ keeps the devices that it heard earlier; only those that it hears now have an RSSI, of which one
// value means that it is not known.
std::vector<FoundDevice> Objects::heardBy(const std::string& adapter) const {
  std::vector<FoundDevice> heard;
  for (const auto& [path, interfaces] : objects_) {
    const auto* const device = isBelow(path, adapter) ? find(path, kDevice) : nullptr;
    if (device == nullptr || !device->contains("RSSI")) continue;
    const auto signal = valueIn<std::int16_t>(*device, "RSSI", kUnknownSignal);
    heard.push_back({valueIn<std::string>(*device, "Address", {}), valueIn<std::string>(*device, "Name", {}),
                     signal == kUnknownSignal ? std::nullopt : std::optional(signal),
                     uuidsOf(valueIn<std::vector<std::string>>(*device, "UUIDs", {}))});
  }
  return heard;
}

bool Objects::isTrue(const std::string& path, const char* interface, const char* property) const {
  const auto* const found = find(path, interface);
  return found != nullptr && valueIn(*found, property, false);
}

std::vector<Objects::Characteristic> Objects::characteristicsOf(const std::string& device) const {
  std::vector<Characteristic> characteristics;
  for (const auto& [path, interfaces] : objects_) {
    const auto* const found = isBelow(path, device) ? find(path, kCharacteristic) : nullptr;
    if (found == nullptr) continue;
    const auto uuid = Uuid::fromString(valueIn<std::string>(*found, "UUID", {}));
    if (!uuid) continue;
    characteristics.push_back(
        {path, *uuid, propertiesOf(valueIn<std::vector<std::string>>(*found, "Flags", {})),
         valueIn<std::uint16_t>(*found, "MTU", 0),
         found->contains("NotifyAcquired") && !valueIn(*found, "NotifyAcquired", true)});
  }
  return characteristics;
}

}  // namespace kwtsdk::bluez
