#include "sim/air/gatt_table.h"

#include <utility>

#include "sim/air/att.h"
#include "sim/air/identifiers.h"
#include "sim/byte_order.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace {

struct ServiceForm {
  const char* uuid;
  std::vector<const char*> characteristics;
};

const ServiceForm kServices[]{
    {wire::kRecorderService, {wire::kRecorderWrite, wire::kRecorderNotify}},
    {wire::kStatusService, {wire::kStatusWrite, wire::kStatusNotify}},
    {wire::kFirmwareService, {wire::kFirmware}},
};

constexpr std::uint16_t kGenericAccess = 0x1800, kDeviceName = 0x2A00, kAppearance = 0x2A01;
constexpr std::uint32_t kReadProperty = 0x02;

class TableBuilder {
 public:
  void addService(const Uuid& uuid) {
    serviceAt_ = table_.size();
    add(shortUuid(att::primaryService), attUuid(uuid));
  }

  void addReadable(std::uint16_t number, Bytes value) {
    declare(shortUuid(number), kReadProperty);
    add(shortUuid(number), std::move(value));
  }

  void addCharacteristic(const std::shared_ptr<Characteristic>& characteristic) {
    declare(characteristic->UUID(), characteristic->properties());
    add(characteristic->UUID(), std::nullopt, characteristic);
    if ((characteristic->properties() & characteristic_property::notify) == 0) return;
    add(shortUuid(att::clientCharacteristicConfiguration), Bytes{0, 0}, characteristic);
  }

  GattTable take() { return std::move(table_); }

 private:
  void declare(const Uuid& uuid, std::uint32_t properties) {
    Bytes declaration{static_cast<std::uint8_t>(properties)};
    appendLittle16(declaration, table_.size() + 2);  // the handle of the value, which follows
    append(declaration, attUuid(uuid));
    add(shortUuid(att::characteristicDeclaration), std::move(declaration));
  }

  void add(const Uuid& type, std::optional<Bytes> value,
           std::shared_ptr<Characteristic> characteristic = nullptr) {
    const auto handle = static_cast<std::uint16_t>(table_.size() + 1);
    table_.push_back({handle, handle, type, std::move(value), std::move(characteristic)});
    table_[serviceAt_].groupEnd = handle;
  }

  GattTable table_;
  std::size_t serviceAt_ = 0;
};

}  // namespace

GattTable gattTable(const SimulatedLink& link, const std::string& deviceName) {
  TableBuilder builder;
  builder.addService(shortUuid(kGenericAccess));
  builder.addReadable(kDeviceName, {deviceName.begin(), deviceName.end()});
  builder.addReadable(kAppearance, {0, 0});
  for (const auto& service : kServices) {
    builder.addService(Uuid::fromString(service.uuid).value());
    for (const char* const uuid : service.characteristics)
      builder.addCharacteristic(link.characteristic(uuid));
  }
  return builder.take();
}

}  // namespace kwtsdk::sim
