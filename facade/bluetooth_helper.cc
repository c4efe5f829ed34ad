#include <kwtsdk/bluetooth_helper.h>

#include <utility>

#include "channel/command_channel.h"
#include "filestore/file_download.h"
#include "filestore/file_queries.h"
#include "filestore/file_removal.h"
#include "recording/live_recording.h"
#include "status/status_queries.h"
#include "update/image_transfer.h"
#include "update/update_driver.h"
#include "update/update_handshake.h"

namespace kwtsdk {

using internal::SharedField;

struct KWTBluetoothHelper::Impl {
  explicit Impl(Platform platform)
      : channel(std::move(platform)),
        status(channel),
        files(channel, status),
        removal(channel, files),
        download(channel, status, files, removal),
        recording(channel),
        handshake(channel),
        transfer(channel, handshake.mtu),
        update(channel, handshake, transfer) {}

  internal::CommandChannel channel;
  internal::StatusQueries status;
  internal::FileQueries files;
  internal::FileRemoval removal;
  internal::FileDownload download;
  internal::LiveRecording recording;
  internal::UpdateHandshake handshake;
  internal::ImageTransfer transfer;
  internal::UpdateDriver update;

  SharedField<std::shared_ptr<Characteristic>> commandCharacteristic;
};

KWTBluetoothHelper::KWTBluetoothHelper(Platform platform)
    : impl_(std::make_unique<Impl>(std::move(platform))) {}

KWTBluetoothHelper::~KWTBluetoothHelper() = default;

std::shared_ptr<KWTBluetoothHelper> KWTBluetoothHelper::create(Platform platform) {
  const std::shared_ptr<KWTBluetoothHelper> helper(new KWTBluetoothHelper(std::move(platform)));
  helper->impl_->channel.bindOwner(helper);
  return helper;
}

// ---- Link binding and registry ----

std::shared_ptr<Peripheral> KWTBluetoothHelper::connectedPeripheral() const {
  return impl_->channel.binding.peripheral();
}

void KWTBluetoothHelper::setConnectedPeripheral(std::shared_ptr<Peripheral> peripheral) {
  impl_->channel.binding.setPeripheral(std::move(peripheral));
}

KWTBluetoothHelper::Registry KWTBluetoothHelper::discoveredCharacteristics() const {
  return impl_->channel.binding.registry();
}

void KWTBluetoothHelper::setDiscoveredCharacteristics(Registry registry) {
  impl_->channel.binding.setRegistry(std::move(registry));
}

void KWTBluetoothHelper::addDiscoveredCharacteristic(std::shared_ptr<Characteristic> characteristic) {
  impl_->channel.binding.add(std::move(characteristic));
}

std::function<void(std::shared_ptr<Characteristic>)> KWTBluetoothHelper::addDiscoveredCharacteristicBlock() {
  return [weak = weak_from_this()](std::shared_ptr<Characteristic> characteristic) {
    if (const auto self = weak.lock()) self->addDiscoveredCharacteristic(std::move(characteristic));
  };
}

KWTBluetoothHelper::PeripheralEvent KWTBluetoothHelper::didWriteValueForCharacteristicBlock() {
  return
      [weak = weak_from_this()](const auto& peripheral, const auto& characteristic, const MaybeError& error) {
        if (const auto self = weak.lock())
          self->didWriteValueForCharacteristic(peripheral, characteristic, error);
      };
}

KWTBluetoothHelper::PeripheralEvent KWTBluetoothHelper::didUpdateValueForCharacteristicBlock() {
  return
      [weak = weak_from_this()](const auto& peripheral, const auto& characteristic, const MaybeError& error) {
        if (const auto self = weak.lock())
          self->didUpdateValueForCharacteristic(peripheral, characteristic, error);
      };
}

void KWTBluetoothHelper::startSubscribingToCharacteristic(const std::string& uuid) {
  const auto self = weak_from_this().lock();
  impl_->channel.binding.setNotify(true, uuid);
}

void KWTBluetoothHelper::stopSubscribingToCharacteristic(const std::string& uuid) {
  const auto self = weak_from_this().lock();
  impl_->channel.binding.setNotify(false, uuid);
}

// ---- Fields ----

bool KWTBluetoothHelper::written() const { return impl_->channel.watchdog.written; }
void KWTBluetoothHelper::setWritten(bool written) { impl_->channel.watchdog.written = written; }

std::shared_ptr<Timer> KWTBluetoothHelper::monitorTimer() const { return impl_->channel.watchdog.timer(); }
void KWTBluetoothHelper::setMonitorTimer(std::shared_ptr<Timer> timer) {
  impl_->channel.watchdog.setTimer(std::move(timer));
}

std::shared_ptr<Characteristic> KWTBluetoothHelper::commandCharacteristic() const {
  return impl_->commandCharacteristic.get();
}
void KWTBluetoothHelper::setCommandCharacteristic(std::shared_ptr<Characteristic> characteristic) {
  impl_->commandCharacteristic.set(std::move(characteristic));
}

std::int64_t KWTBluetoothHelper::cmdType() const { return impl_->channel.dispatcher.cmdType; }
void KWTBluetoothHelper::setCmdType(std::int64_t cmdType) { impl_->channel.dispatcher.cmdType = cmdType; }

std::int64_t KWTBluetoothHelper::MTU() const { return impl_->handshake.mtu; }
void KWTBluetoothHelper::setMTU(std::int64_t mtu) { impl_->handshake.mtu = mtu; }

ReplyHandler KWTBluetoothHelper::completionBlock() const { return impl_->channel.completionBlock(); }
void KWTBluetoothHelper::setCompletionBlock(ReplyHandler block) {
  impl_->channel.setCompletionBlock(std::move(block));
}

ReplyHandler KWTBluetoothHelper::writeDataBlock() const {
  const auto receiver = impl_->channel.dispatcher.receiver.get();
  return receiver ? *receiver : ReplyHandler();
}
void KWTBluetoothHelper::setWriteDataBlock(ReplyHandler block) {
  impl_->channel.dispatcher.receiver.set(block ? std::make_shared<const ReplyHandler>(std::move(block))
                                               : nullptr);
}

std::shared_ptr<FileHandle> KWTBluetoothHelper::recordFileHandle() const {
  return impl_->recording.file.get();
}
void KWTBluetoothHelper::setRecordFileHandle(std::shared_ptr<FileHandle> handle) {
  impl_->recording.file.set(std::move(handle));
}

// ---- Dispatcher. A callback may release the host's last reference: the facade holds itself meanwhile. ----

void KWTBluetoothHelper::sendCommand(const Bytes& command, const std::string& toCharacteristic,
                                     std::int64_t cmdType, ReplyHandler completion) {
  impl_->channel.sendHostCommand(cmdType, toCharacteristic, command, std::move(completion));
}

void KWTBluetoothHelper::didWriteValueForCharacteristic(const std::shared_ptr<Peripheral>&,
                                                        const std::shared_ptr<Characteristic>& characteristic,
                                                        const MaybeError& error) {
  const auto self = weak_from_this().lock();
  impl_->channel.dispatcher.didWrite(characteristic, error);
}

void KWTBluetoothHelper::didUpdateValueForCharacteristic(
    const std::shared_ptr<Peripheral>&, const std::shared_ptr<Characteristic>& characteristic,
    const MaybeError& error) {
  const auto self = weak_from_this().lock();
  impl_->channel.dispatcher.didUpdate(characteristic, error);
}

void KWTBluetoothHelper::startMonitorTimer(ReplyHandler onTimeout) {
  const auto self = weak_from_this().lock();
  internal::guardedCall(impl_->channel.log, "startMonitorTimer",
                        [&] { impl_->channel.watchdog.start(weak_from_this(), std::move(onTimeout)); });
}

void KWTBluetoothHelper::stopMonitorTimer() { impl_->channel.watchdog.stop(); }

// ---- Status ----

void KWTBluetoothHelper::getPower(LevelCompletion completion) { impl_->status.getPower(completion); }
std::int64_t KWTBluetoothHelper::getPower() { return impl_->status.getPower(); }

void KWTBluetoothHelper::getFirmwareVersion(ValueCompletion<std::string> completion) {
  impl_->status.getFirmwareVersion(completion);
}
std::optional<std::string> KWTBluetoothHelper::getFirmwareVersion() {
  return impl_->status.getFirmwareVersion();
}

void KWTBluetoothHelper::getCapacity(ValueCompletion<ByteCounts> completion) {
  impl_->status.getCapacity(completion);
}
std::optional<ByteCounts> KWTBluetoothHelper::getCapacity() { return impl_->status.getCapacity(); }

// ---- Recording ----

void KWTBluetoothHelper::startRecordWithType(std::int64_t type, const std::string& toOutputFilePath,
                                             Completion completion) {
  impl_->recording.startRecordWithType(type, toOutputFilePath, completion);
}
void KWTBluetoothHelper::stopRecord(Completion completion) { impl_->recording.stopRecord(completion); }

bool KWTBluetoothHelper::decodeOpusFile(const std::string& inputPath, const std::string& toOutputFilePath,
                                        std::int64_t withDecodeType) {
  const auto self = weak_from_this().lock();
  return internal::convertOpusFile(impl_->channel, inputPath, toOutputFilePath, withDecodeType);
}

// ---- Flash file store ----

void KWTBluetoothHelper::getFileNumAndFirstId(ValueCompletion<FlashInfo> completion) {
  impl_->files.getFileNumAndFirstId(completion);
}
std::optional<FlashInfo> KWTBluetoothHelper::getFileNumAndFirstId() {
  return impl_->files.getFileNumAndFirstId();
}

void KWTBluetoothHelper::getFileInfo(std::int64_t fileId, ValueCompletion<KWTFileHeader> completion) {
  impl_->files.getFileInfo(fileId, completion);
}
std::optional<KWTFileHeader> KWTBluetoothHelper::getFileInfo(std::int64_t fileId) {
  return impl_->files.getFileInfo(fileId);
}

void KWTBluetoothHelper::getFlashFileList(ValueCompletion<std::vector<KWTFileHeader>> completion) {
  impl_->files.getFlashFileList(completion);
}

void KWTBluetoothHelper::downloadFirstFlashFile(const std::string& outputFilePath, Progress progress,
                                                Completion completion) {
  impl_->download.downloadFirstFlashFile(outputFilePath, std::move(progress), std::move(completion));
}

void KWTBluetoothHelper::notifyDownloadSuccess(ReplyHandler completion) {
  impl_->removal.notifyDownloadSuccess(completion);
}
bool KWTBluetoothHelper::notifyDownloadSuccess() { return impl_->removal.notifyDownloadSuccess(); }

void KWTBluetoothHelper::deleteFile(std::int64_t fileId, ValueCompletion<ByteCounts> completion) {
  impl_->removal.deleteFile(fileId, completion);
}
void KWTBluetoothHelper::deleteFirstFlashFile(Completion completion) {
  impl_->removal.deleteFirstFlashFile(completion);
}

// ---- Firmware update ----

void KWTBluetoothHelper::updateFirmware(const std::string& imagePath, Progress progress,
                                        ValueCompletion<std::string> completion) {
  impl_->update.updateFirmware(imagePath, progress, completion);
}

void KWTBluetoothHelper::updatePrepare(StepCompletion completion) {
  impl_->handshake.updatePrepare(completion);
}
void KWTBluetoothHelper::updateSelectionSide(StepCompletion completion) {
  impl_->handshake.updateSelectionSide(completion);
}
void KWTBluetoothHelper::updateResumeVerify(std::int64_t segmentSize, std::uint64_t offset,
                                            StepCompletion completion) {
  impl_->handshake.updateResumeVerify(segmentSize, offset, completion);
}
void KWTBluetoothHelper::updateBegin(const Bytes& image, StepCompletion completion) {
  impl_->handshake.updateBegin(image, completion);
}
void KWTBluetoothHelper::updateConfig(const Bytes& image, StepCompletion completion) {
  impl_->handshake.updateConfig(image, completion);
}

void KWTBluetoothHelper::uploadFirmWare(const std::optional<Bytes>& image, std::uint64_t offset,
                                        Progress progress, ValueCompletion<std::string> completion) {
  impl_->transfer.uploadCopyOf(image, offset, progress, completion);
}
void KWTBluetoothHelper::updateSendData(const Bytes& packet, ReplyHandler completion) {
  impl_->transfer.updateSendData(packet, completion);
}
void KWTBluetoothHelper::updateCheckData(const Bytes& segment, StepCompletion completion) {
  impl_->transfer.updateCheckData(segment, completion);
}
void KWTBluetoothHelper::updateBye(StepCompletion completion) { impl_->transfer.updateBye(completion); }
void KWTBluetoothHelper::updateDone() { impl_->transfer.updateDone(); }

}  // namespace kwtsdk
