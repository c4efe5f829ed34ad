#include <kwtsdk/sim/recorder_model.h>

#include <array>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "sim/model/device_state.h"
#include "sim/model/file_service.h"
#include "sim/model/firmware_image.h"
#include "sim/model/firmware_service.h"
#include "sim/model/firmware_update.h"
#include "sim/model/recording_service.h"
#include "sim/model/silent_microphone.h"
#include "sim/model/status_service.h"

namespace kwtsdk::sim {

struct RecorderModel::Impl {
  struct Entry {
    Channel channel;
    Service& service;
  };

  explicit Impl(std::shared_ptr<RecordingStore> store) { device.store = std::move(store); }

  const Entry* streamingEntry() const {
    for (const Entry& entry : services) {
      if (entry.service.streaming()) return &entry;
    }
    return nullptr;
  }

  mutable std::mutex mutex;
  DeviceState device;
  FrameFilter frameFilter;
  ReplyFilter filter;
  StatusService status{device};
  RecordingService recordings{device};
  FileService files{device};
  FirmwareService version{device.firmware};
  FirmwareUpdate update{device.firmware};
  // A frame goes to the first that answers, packets come from the first that has some: a download must not
  // hold up a recording.
  std::array<Entry, 5> services{{{Channel::status, status},
                                 {Channel::recorder, recordings},
                                 {Channel::recorder, files},
                                 {Channel::firmware, version},
                                 {Channel::firmware, update}}};
};

RecorderModel::RecorderModel(std::shared_ptr<RecordingStore> store)
    : impl_(std::make_unique<Impl>(std::move(store))) {}

RecorderModel::~RecorderModel() = default;

void RecorderModel::setBatteryLevel(std::uint32_t level) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.batteryLevel = level;
}

void RecorderModel::setVersion(Bytes version) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.firmware.version = std::move(version);
}

void RecorderModel::setTotalBlocks(std::uint16_t blocks) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.totalBlocks = blocks;
}

void RecorderModel::setAlwaysEndMarker(bool always) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.alwaysEndMarker = always;
}

void RecorderModel::setMicrophone(std::shared_ptr<Microphone> microphone) {
  if (!microphone) microphone = std::make_shared<SilentMicrophone>();
  const std::lock_guard lock(impl_->mutex);
  impl_->device.microphone.swap(microphone);
}

void RecorderModel::setInCall(bool inCall) {
  const std::lock_guard lock(impl_->mutex);
  impl_->recordings.setInCall(inCall);
}

void RecorderModel::pressKey() {
  const std::lock_guard lock(impl_->mutex);
  impl_->recordings.pressKey();
}

void RecorderModel::setKeyAfter(std::optional<Duration> recorded) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.keyAfter = recorded;
}

void RecorderModel::setCallAfter(std::optional<Duration> recorded) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.callAfter = recorded;
}

void RecorderModel::setFirmware(Bytes image) {
  if (!isImageSize(image.size())) throw std::invalid_argument("a firmware image has 4 to 67108864 bytes");
  const std::lock_guard lock(impl_->mutex);
  impl_->device.firmware.version = versionOf(image);
  impl_->device.firmware.image = std::move(image);
}

std::optional<Bytes> RecorderModel::installedImage() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->device.firmware.image;
}

void RecorderModel::setFirmwareSlot(FirmwareSlot slot) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.firmware.slot = std::move(slot);
}

void RecorderModel::setUpdateTroubles(std::vector<UpdateTrouble> troubles) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.firmware.troubles = std::move(troubles);
}

void RecorderModel::setUpdateMtu(std::optional<std::uint16_t> mtu) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.firmware.updateMtu = mtu;
}

std::optional<ResumeVerification> RecorderModel::lastResume() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->device.firmware.lastResume;
}

void RecorderModel::setFrameFilter(FrameFilter filter) {
  const std::lock_guard lock(impl_->mutex);
  impl_->frameFilter = std::move(filter);
}

void RecorderModel::setReplyFilter(ReplyFilter filter) {
  const std::lock_guard lock(impl_->mutex);
  impl_->filter = std::move(filter);
}

std::optional<Bytes> RecorderModel::write(Channel channel, const Bytes& frame) {
  std::unique_lock lock(impl_->mutex);
  if (const FrameFilter filter = impl_->frameFilter) {
    lock.unlock();  // so that a filter may change the model
    if (!filter(channel, frame)) return std::nullopt;
    lock.lock();
  }
  std::optional<Bytes> reply;
  for (const auto& entry : impl_->services) {
    if (entry.channel == channel && !reply) reply = entry.service.handle(frame);
  }
  if (!reply || !impl_->filter) return reply;
  const ReplyFilter filter = impl_->filter;
  lock.unlock();
  return filter(frame, std::move(*reply));
}

void RecorderModel::setLinkMtu(std::size_t mtu) {
  const std::lock_guard lock(impl_->mutex);
  impl_->device.firmware.linkMtu = mtu;
}

bool RecorderModel::streaming() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->streamingEntry() != nullptr;
}

std::optional<Notification> RecorderModel::nextPacket() {
  std::unique_lock lock(impl_->mutex);
  while (const auto* entry = impl_->streamingEntry()) {
    const Bytes request = impl_->filter ? entry->service.streamRequest() : Bytes{};
    std::optional<Bytes> packet = entry->service.nextPacket();
    if (packet && impl_->filter) {
      const ReplyFilter filter = impl_->filter;
      lock.unlock();
      packet = filter(request, std::move(*packet));
      lock.lock();
    }
    if (packet) return Notification{entry->channel, std::move(*packet)};
  }
  return std::nullopt;
}

bool RecorderModel::recording() const {
  const std::lock_guard lock(impl_->mutex);
  return impl_->recordings.recording();
}

void RecorderModel::recordPacket() {
  const std::lock_guard lock(impl_->mutex);
  impl_->recordings.recordPacket();
}

void RecorderModel::linkLost() {
  const std::lock_guard lock(impl_->mutex);
  for (const auto& entry : impl_->services) entry.service.linkLost();
}

}  // namespace kwtsdk::sim
