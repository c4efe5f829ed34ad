#include "tools/trace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <iostream>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/threads/mutex.h"
#include "tools/btsnoop.h"
#include "tools/failure.h"

namespace kwtsdk::tool {
namespace {

namespace att = btsnoop::att;

constexpr std::uint16_t kConnection = 0x0040;  // its handle

void putBig(Bytes& bytes, std::uint64_t value, unsigned size) {
  for (unsigned i = size; i-- > 0;) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void putLittle(Bytes& bytes, std::uint64_t value, unsigned size) {
  for (unsigned i = 0; i < size; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

void put(Bytes& bytes, std::span<const std::uint8_t> more) {
  bytes.insert(bytes.end(), more.begin(), more.end());
}

/// As attribute protocols send it, least significant byte first: short where it has a short form.
Bytes uuidOnAir(const Uuid& uuid) {
  Bytes bytes;
  std::string digits;
  for (const char c : uuid.toString()) {
    if (c != '-') digits += c;
  }
  for (std::size_t at = digits.size(); at >= 2; at -= 2)
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(at - 2, 2), nullptr, 16)));
  const bool hasShortForm = Uuid::fromString(digits.substr(4, 4)) == uuid;
  return hasShortForm ? Bytes(bytes.begin() + 12, bytes.begin() + 14) : bytes;
}

class Trace final : public TrafficObserver {
 public:
  Trace(std::shared_ptr<Scheduler> scheduler, std::string path);
  ~Trace() override { ::close(file_); }
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  void opened(const Peripheral& peripheral, const Characteristics& characteristics) override;
  void subscribed(const Characteristic& characteristic, bool enabled) override;
  void written(const Characteristic& characteristic, const Bytes& frame) override;
  void acknowledged(const Characteristic& characteristic, const MaybeError& error) override;
  void notified(const Characteristic& characteristic, const Bytes& frame) override;
  void closed() override;

 private:
  enum class From { host, recorder };

  std::uint16_t handleOf(const Characteristic& characteristic);
  void tellCharacteristic(std::uint16_t handle, const Uuid& uuid, std::uint32_t properties);
  void event(std::uint8_t code, const Bytes& parameters);
  void att(From from, const Bytes& pdu);
  void record(std::uint8_t type, std::uint32_t flags, const Bytes& packet);

  const std::shared_ptr<Scheduler> scheduler_;
  const std::string path_;
  const std::chrono::microseconds zero_;  // when the scheduler's clock was 0
  const int file_;
  internal::Mutex mutex_;
  std::vector<Uuid> known_ KWT_GUARDED_BY(mutex_);  // their places tell their handles
  bool isBroken_ KWT_GUARDED_BY(mutex_) = false;
};

int created(const std::string& path) {
  constexpr mode_t mode = 0644;
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (file >= 0) return file;
  throw Failure(ToolError::fileUnusable,
                "Cannot write " + path + ": " + std::generic_category().message(errno) + ".",
                "Name another file with --trace.");
}

Trace::Trace(std::shared_ptr<Scheduler> scheduler, std::string path)
    : scheduler_(std::move(scheduler)),
      path_(std::move(path)),
      zero_(std::chrono::seconds(std::time(nullptr)) + btsnoop::kTo1970 -
            std::chrono::duration_cast<std::chrono::microseconds>(scheduler_->now())),
      file_(created(path_)) {
  Bytes head(btsnoop::kMagic.begin(), btsnoop::kMagic.end());
  putBig(head, btsnoop::kVersion, 4);
  putBig(head, btsnoop::kTyped, 4);
  if (::write(file_, head.data(), head.size()) < 0) isBroken_ = true;
}

void Trace::opened(const Peripheral& peripheral, const Characteristics& characteristics) {
  constexpr std::size_t writeHead = 3;
  Bytes connected{btsnoop::kConnected, 0};
  putLittle(connected, kConnection, 2);
  connected.resize(19);  // central; an address, an interval and so on that are not known
  event(btsnoop::kLowEnergy, connected);
  const std::size_t mtu = peripheral.maximumWriteValueLengthForType(WriteType::withoutResponse) + writeHead;
  Bytes request{att::kMtuRequest}, response{att::kMtuResponse};
  putLittle(request, mtu, 2);
  putLittle(response, mtu, 2);
  att(From::host, request);
  att(From::recorder, response);
  for (const auto& one : characteristics) tellCharacteristic(handleOf(*one), one->UUID(), one->properties());
}

/// So that whoever reads the trace knows the handle.
void Trace::tellCharacteristic(std::uint16_t handle, const Uuid& uuid, std::uint32_t properties) {
  Bytes request{att::kReadByTypeRequest};
  putLittle(request, handle - 1U, 2);
  putLittle(request, 0xFFFF, 2);
  putLittle(request, att::kCharacteristicDeclaration, 2);
  att(From::host, request);
  const Bytes onAir = uuidOnAir(uuid);
  Bytes response{att::kReadByTypeResponse, static_cast<std::uint8_t>(onAir.size() + 5)};
  putLittle(response, handle - 1U, 2);
  putLittle(response, properties, 1);
  putLittle(response, handle, 2);
  put(response, onAir);
  att(From::recorder, response);
}

void Trace::subscribed(const Characteristic& characteristic, bool enabled) {
  Bytes pdu{att::kWriteRequest};
  putLittle(pdu, handleOf(characteristic) + 1U, 2);
  putLittle(pdu, enabled ? 1 : 0, 2);
  att(From::host, pdu);
}

void Trace::written(const Characteristic& characteristic, const Bytes& frame) {
  Bytes pdu{att::kWriteRequest};
  putLittle(pdu, handleOf(characteristic), 2);
  put(pdu, frame);
  att(From::host, pdu);
}

void Trace::acknowledged(const Characteristic& characteristic, const MaybeError& error) {
  if (!error) return att(From::recorder, {att::kWriteResponse});
  Bytes pdu{att::kErrorResponse, att::kWriteRequest};
  putLittle(pdu, handleOf(characteristic), 2);
  const bool isCode = error->code() > 0 && error->code() <= 0xFF;
  pdu.push_back(isCode ? static_cast<std::uint8_t>(error->code()) : att::kUnlikelyError);
  att(From::recorder, pdu);
}

void Trace::notified(const Characteristic& characteristic, const Bytes& frame) {
  Bytes pdu{att::kNotification};
  putLittle(pdu, handleOf(characteristic), 2);
  put(pdu, frame);
  att(From::recorder, pdu);
}

void Trace::closed() {
  constexpr std::uint8_t byRemoteUser = 0x13;
  Bytes parameters{0};
  putLittle(parameters, kConnection, 2);
  parameters.push_back(byRemoteUser);
  event(btsnoop::kDisconnected, parameters);
}

/// Declaration, value and configuration are three handles.
std::uint16_t Trace::handleOf(const Characteristic& characteristic) {
  const Uuid uuid = characteristic.UUID();
  const internal::MutexLock lock(mutex_);
  const auto found = std::ranges::find(known_, uuid);
  const auto place = found - known_.begin();
  if (found == known_.end()) known_.push_back(uuid);
  return static_cast<std::uint16_t>(3 * place + 3);
}

void Trace::event(std::uint8_t code, const Bytes& parameters) {
  Bytes packet{code, static_cast<std::uint8_t>(parameters.size())};
  put(packet, parameters);
  record(btsnoop::kEvent, btsnoop::kReceived | btsnoop::kCommandOrEvent, packet);
}

void Trace::att(From from, const Bytes& pdu) {
  constexpr std::size_t channelHead = 4;
  const bool isReceived = from == From::recorder;
  Bytes packet;
  putLittle(packet, kConnection | (isReceived ? btsnoop::kBeginningReceived : 0U), 2);
  putLittle(packet, pdu.size() + channelHead, 2);
  putLittle(packet, pdu.size(), 2);
  putLittle(packet, btsnoop::kAttChannel, 2);
  put(packet, pdu);
  record(btsnoop::kAcl, isReceived ? btsnoop::kReceived : 0, packet);
}

void Trace::record(std::uint8_t type, std::uint32_t flags, const Bytes& packet) {
  Bytes bytes;
  putBig(bytes, packet.size() + 1, 4);
  putBig(bytes, packet.size() + 1, 4);
  putBig(bytes, flags, 4);
  putBig(bytes, 0, 4);  // dropped so far
  const internal::MutexLock lock(mutex_);
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(scheduler_->now());
  putBig(bytes, static_cast<std::uint64_t>((zero_ + now).count()), 8);
  bytes.push_back(type);
  put(bytes, packet);
  if (isBroken_ || ::write(file_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size())) return;
  isBroken_ = true;
  std::cerr << "kwt: " << path_ << " cannot be written any more; the trace ends here.\n";
}

}  // namespace

std::shared_ptr<TrafficObserver> traceInto(const std::shared_ptr<Scheduler>& scheduler,
                                           const std::string& file) {
  return std::make_shared<Trace>(scheduler, file);
}

}  // namespace kwtsdk::tool
