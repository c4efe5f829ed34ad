#include "platform/bluez/objects.h"

#include <algorithm>
#include <array>
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

}  // namespace

std::optional<Objects::Value> Objects::valueOf(const sdbus::Variant& value) {
  const std::string type = value.peekValueType();
  if (type == "b") return value.get<bool>();
  if (type == "n") return value.get<std::int16_t>();
  if (type == "q") return value.get<std::uint16_t>();
  if (type == "s") return value.get<std::string>();
  if (type == "as") return value.get<std::vector<std::string>>();
  return std::nullopt;
}

void Objects::set(Interface& interface, const std::map<std::string, sdbus::Variant>& values) {
  for (const auto& [name, variant] : values) {
    if (auto value = valueOf(variant)) interface.insert_or_assign(name, std::move(*value));
  }
}

void Objects::replaceBy(const std::map<sdbus::ObjectPath, Added>& all) {
  objects_.clear();
  for (const auto& [path, interfaces] : all) add(path, interfaces);
}

void Objects::add(const std::string& path, const Added& interfaces) {
  for (const auto& [name, values] : interfaces) set(objects_[path][name], values);
}

void Objects::remove(const std::string& path, const std::vector<std::string>& interfaces) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return;
  for (const auto& name : interfaces) object->second.erase(name);
  if (object->second.empty()) objects_.erase(object);
}

void Objects::change(const std::string& path, const std::string& interface,
                     const std::map<std::string, sdbus::Variant>& changed,
                     const std::vector<std::string>& invalidated) {
  const auto object = objects_.find(path);
  if (object == objects_.end()) return;
  auto& properties = object->second[interface];
  set(properties, changed);
  for (const auto& name : invalidated) properties.erase(name);
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
    characteristics.push_back({path, *uuid,
                               propertiesOf(valueIn<std::vector<std::string>>(*found, "Flags", {})),
                               valueIn<std::uint16_t>(*found, "MTU", 0)});
  }
  return characteristics;
}

}  // namespace kwtsdk::bluez
