#include <kwtsdk/sim/recorder_model.h>

#include <array>
#include <stdexcept>
#include <utility>

#include "platform/threads/mutex.h"
#include "sim/model/file_service.h"
#include "sim/model/firmware_service.h"
#include "sim/model/recording_service.h"
#include "sim/model/status_service.h"

namespace kwtsdk::sim {

using internal::Mutex;
using internal::MutexLock;

struct RecorderModel::Impl {
  struct Entry {
    Channel channel;
    Service& service;
  };
  struct Packet {
    Channel channel;
    Bytes request;  // which asked for it
    std::optional<Bytes> value;
  };

  explicit Impl(std::shared_ptr<RecordingStore> store) { device.store = std::move(store); }

  std::optional<Bytes> handle(Channel channel, const Bytes& frame) KWT_EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    std::optional<Bytes> reply;
    for (const Entry& entry : services) {
      if (entry.channel == channel && !reply) reply = entry.service.handle(frame);
    }
    return reply;
  }

  const Entry* streamingEntry() const KWT_REQUIRES(mutex) {
    for (const Entry& entry : services) {
      if (entry.service.streaming()) return &entry;
    }
    return nullptr;
  }

  std::optional<Packet> nextPacket(bool withRequest) KWT_EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    const Entry* const entry = streamingEntry();
    if (entry == nullptr) return std::nullopt;
    Bytes request = withRequest ? entry->service.streamRequest() : Bytes{};
    return Packet{entry->channel, std::move(request), entry->service.nextPacket()};
  }

  // Called without the model's lock, so that they may change the model.
  internal::SharedField<FrameFilter> frameFilter;
  internal::SharedField<ReplyFilter> replyFilter;

  mutable Mutex mutex;
  DeviceState device KWT_GUARDED_BY(mutex);
  StatusService status KWT_GUARDED_BY(mutex){device};
  RecordingService recordings KWT_GUARDED_BY(mutex){device};
  FileService files KWT_GUARDED_BY(mutex){device};
  FirmwareService firmware KWT_GUARDED_BY(mutex){device.firmware};
  // A frame goes to the first that answers, packets come from the first that has some: a download must not
  // hold up a recording.
  const std::array<Entry, 4> services KWT_GUARDED_BY(mutex){{{Channel::status, status},
                                                             {Channel::recorder, recordings},
                                                             {Channel::recorder, files},
                                                             {Channel::firmware, firmware}}};
};

RecorderModel::RecorderModel(std::shared_ptr<RecordingStore> store)
    : impl_(std::make_unique<Impl>(std::move(store))) {}

RecorderModel::~RecorderModel() = default;

void RecorderModel::setBatteryLevel(std::uint32_t level) {
  const MutexLock lock(impl_->mutex);
  impl_->device.batteryLevel = level;
}

void RecorderModel::setVersion(Bytes version) {
  const MutexLock lock(impl_->mutex);
  impl_->device.firmware.version = std::move(version);
}

void RecorderModel::setTotalBlocks(std::uint16_t blocks) {
  const MutexLock lock(impl_->mutex);
  impl_->device.totalBlocks = blocks;
}

void RecorderModel::setAlwaysEndMarker(bool always) {
  const MutexLock lock(impl_->mutex);
  impl_->device.alwaysEndMarker = always;
}

void RecorderModel::setMicrophone(std::shared_ptr<Microphone> microphone) {
  if (!microphone) microphone = std::make_shared<SilentMicrophone>();
  const MutexLock lock(impl_->mutex);
  impl_->device.microphone.swap(microphone);
}

void RecorderModel::setInCall(bool inCall) {
  const MutexLock lock(impl_->mutex);
  impl_->recordings.setInCall(inCall);
}

void RecorderModel::pressKey() {
  const MutexLock lock(impl_->mutex);
  impl_->recordings.pressKey();
}

void RecorderModel::setKeyAfter(std::optional<Duration> recorded) {
  const MutexLock lock(impl_->mutex);
  impl_->device.recordingEnds.keyAfter = recorded;
}

void RecorderModel::setCallAfter(std::optional<Duration> recorded) {
  const MutexLock lock(impl_->mutex);
  impl_->device.recordingEnds.callAfter = recorded;
}

void RecorderModel::setRecordingEnds(const RecordingEnds& ends) {
  const MutexLock lock(impl_->mutex);
  impl_->device.recordingEnds = ends;
}

void RecorderModel::setFirmware(Bytes image) {
  if (!wire::isImageSize(image.size()))
    throw std::invalid_argument("a firmware image has 4 to 67108864 bytes");
  const MutexLock lock(impl_->mutex);
  impl_->device.firmware.version = wire::versionOf(image);
  impl_->device.firmware.image = std::move(image);
}

std::optional<Bytes> RecorderModel::installedImage() const {
  const MutexLock lock(impl_->mutex);
  return impl_->device.firmware.image;
}

void RecorderModel::setFirmwareStaging(FirmwareStaging staging) {
  const MutexLock lock(impl_->mutex);
  impl_->device.firmware.staging = std::move(staging);
}

void RecorderModel::setFirmwareSlot(FirmwareSlot slot) {
  const MutexLock lock(impl_->mutex);
  impl_->device.firmware.slot = std::move(slot);
}

void RecorderModel::setUpdateTroubles(std::vector<UpdateTrouble> troubles) {
  const MutexLock lock(impl_->mutex);
  impl_->device.firmware.troubles = std::move(troubles);
}

void RecorderModel::setUpdateMtu(std::optional<std::uint16_t> mtu) {
  const MutexLock lock(impl_->mutex);
  impl_->device.firmware.updateMtu = mtu;
}

std::optional<ResumeVerification> RecorderModel::lastResume() const {
  const MutexLock lock(impl_->mutex);
  return impl_->device.firmware.lastResume;
}

void RecorderModel::setFrameFilter(FrameFilter filter) { impl_->frameFilter.set(std::move(filter)); }

void RecorderModel::setReplyFilter(ReplyFilter filter) { impl_->replyFilter.set(std::move(filter)); }

std::optional<Bytes> RecorderModel::write(Channel channel, const Bytes& frame) {
  const FrameFilter frameFilter = impl_->frameFilter.get();
  if (frameFilter && !frameFilter(channel, frame)) return std::nullopt;
  std::optional<Bytes> reply = impl_->handle(channel, frame);
  const ReplyFilter replyFilter = impl_->replyFilter.get();
  return reply && replyFilter ? replyFilter(frame, std::move(*reply)) : reply;
}

void RecorderModel::setLinkMtu(std::size_t mtu) {
  const MutexLock lock(impl_->mutex);
  impl_->device.firmware.linkMtu = mtu;
}

bool RecorderModel::streaming() const {
  const MutexLock lock(impl_->mutex);
  return impl_->streamingEntry() != nullptr;
}

std::optional<Notification> RecorderModel::nextPacket() {
  for (;;) {
    const ReplyFilter filter = impl_->replyFilter.get();
    auto packet = impl_->nextPacket(filter != nullptr);
    if (!packet) return std::nullopt;
    if (packet->value && filter) packet->value = filter(packet->request, std::move(*packet->value));
    if (packet->value) return Notification{packet->channel, std::move(*packet->value)};
  }
}

bool RecorderModel::recording() const {
  const MutexLock lock(impl_->mutex);
  return impl_->recordings.recording();
}

void RecorderModel::recordPacket() {
  const MutexLock lock(impl_->mutex);
  impl_->recordings.recordPacket();
}

void RecorderModel::linkLost() {
  const MutexLock lock(impl_->mutex);
  for (const auto& entry : impl_->services) entry.service.linkLost();
}

}  // namespace kwtsdk::sim
