#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include <kwtsdk/bytes.h>
#include <kwtsdk/callbacks.h>
#include <kwtsdk/cmd_type.h>
#include <kwtsdk/export.h>
#include <kwtsdk/file_header.h>
#include <kwtsdk/files.h>
#include <kwtsdk/peripheral.h>
#include <kwtsdk/platform.h>
#include <kwtsdk/uuid.h>

namespace kwtsdk {

/// The one object through which a host drives a recorder. The host scans, connects and discovers; it hands
/// over the connected peripheral and every characteristic, and forwards write acknowledgements and
/// notifications. The library learns of a lost link only from the peripheral's state when it sends.
///
/// Rules that hold for every operation:
/// - Any thread may call it, and no exception leaves it. Completions marked "link thread" run on the
///   thread on which the host forwards events; errors that need no answer are delivered inside the call.
/// - One command at a time: while completionBlock is set, an operation fails with 1002 and sends nothing.
///   It is still set while a completion runs: a command started inside a completion on the link thread
///   gets 1002.
/// - A completion form has no time-out: without an answer its completion is not called, and the facade
///   stays busy until some notification arrives or a blocking form ends.
/// - A blocking form must not be called on the link thread: the answer could not be forwarded, so it runs
///   into its time-out. When it ends it clears completionBlock, whosever that is: a command that is
///   cleared is dropped, and its completion is not called.
/// - "Dispatcher error" means 1001 "蓝牙断开连接" (not connected), 1001 "找不到特征值：…" (characteristic
///   not registered or without the Write property), and the Bluetooth stack's own error of a failed write.
class KWTSDK_EXPORT KWTBluetoothHelper : public std::enable_shared_from_this<KWTBluetoothHelper> {
 public:
  /// The process-wide instance, created by the first call and kept until the process ends.
  static std::shared_ptr<KWTBluetoothHelper> shared();

  /// What shared() stands on. Has an effect only before the first shared(); later it is logged.
  static void setSharedPlatform(Platform platform);

  /// An independent instance with queues of its own: for tests, or for a second recorder.
  static std::shared_ptr<KWTBluetoothHelper> create(Platform platform = {});

  ~KWTBluetoothHelper();
  KWTBluetoothHelper(const KWTBluetoothHelper&) = delete;
  KWTBluetoothHelper& operator=(const KWTBluetoothHelper&) = delete;

  // ---- Link binding and registry. Nothing here blocks or reports an error. ----
  std::shared_ptr<Peripheral> connectedPeripheral() const;
  void setConnectedPeripheral(std::shared_ptr<Peripheral> peripheral);

  /// One characteristic per UUID, whatever its service; one that is added replaces its equal.
  using Registry = std::unordered_map<Uuid, std::shared_ptr<Characteristic>>;
  Registry discoveredCharacteristics() const;  // a snapshot
  void setDiscoveredCharacteristics(Registry registry);
  void addDiscoveredCharacteristic(std::shared_ptr<Characteristic> characteristic);

  // Callbacks for the host's Bluetooth delegate. They hold the facade weakly and do nothing once it is gone.
  std::function<void(std::shared_ptr<Characteristic>)> addDiscoveredCharacteristicBlock();
  using PeripheralEvent =
      std::function<void(std::shared_ptr<Peripheral>, std::shared_ptr<Characteristic>, MaybeError)>;
  PeripheralEvent didWriteValueForCharacteristicBlock();
  PeripheralEvent didUpdateValueForCharacteristicBlock();

  /// Switch notifications of a registered characteristic on and off. One that is not registered or lacks the
  /// Notify property is logged; Indicate alone does not count.
  void startSubscribingToCharacteristic(const std::string& uuid);
  void stopSubscribingToCharacteristic(const std::string& uuid);

  // ---- Fields, each readable and settable from any thread. ----

  /// Set by every packet of a download or live recording, cleared by the stall watchdog.
  bool written() const;
  void setWritten(bool written);

  /// The stall watchdog; a timer that is no longer the stored one has no effect.
  std::shared_ptr<Timer> monitorTimer() const;
  void setMonitorTimer(std::shared_ptr<Timer> timer);

  /// For the host; the library does not use it.
  std::shared_ptr<Characteristic> commandCharacteristic() const;
  void setCommandCharacteristic(std::shared_ptr<Characteristic> characteristic);

  /// Type of the last acknowledged write (KWTCmdType); while 0, notifications are dropped.
  std::int64_t cmdType() const;
  void setCmdType(std::int64_t cmdType);

  /// Bytes in one packet of the firmware transfer, set by updateBegin; under 220 counts as 220.
  std::int64_t MTU() const;
  void setMTU(std::int64_t mtu);

  /// The pending command; empty: none. Setting it is unconditional. A host may store what it read inside a
  /// callback of its own: that one then is the pending command, and completes the other by calling it.
  ReplyHandler completionBlock() const;
  void setCompletionBlock(ReplyHandler block);

  /// Receives every notification while set (download, live recording); empty: none. May be wrapped, too.
  ReplyHandler writeDataBlock() const;
  void setWriteDataBlock(ReplyHandler block);

  /// Output of a live recording; null: none, audio is dropped. Stays, closed, after the recorder's own end.
  std::shared_ptr<FileHandle> recordFileHandle() const;
  void setRecordFileHandle(std::shared_ptr<FileHandle> handle);

  // ---- Dispatcher ----

  /// Writes one command and parks `completion` until its answer, which it gets as lower-case hex: the next
  /// notification on any subscribed characteristic, or the write acknowledgement when that failed or the type
  /// is 15. Link thread. Reported inside the call, in this order of tests: 1002 "cmdType:%d,
  /// 已有操作在进行中", 1001 (both texts above).
  void sendCommand(const Bytes& command, const std::string& toCharacteristic, std::int64_t cmdType,
                   ReplyHandler completion);

  /// The host forwards every write acknowledgement and every notification here, on one thread, in the order
  /// of arrival. Replies and completions run inside the call.
  void didWriteValueForCharacteristic(const std::shared_ptr<Peripheral>& peripheral,
                                      const std::shared_ptr<Characteristic>& characteristic,
                                      const MaybeError& error);
  void didUpdateValueForCharacteristic(const std::shared_ptr<Peripheral>& peripheral,
                                       const std::shared_ptr<Characteristic>& characteristic,
                                       const MaybeError& error);

  /// Starts the stall watchdog, checked after 1 s and then every 5 s. A check that finds `written` false
  /// calls `onTimeout` with 999 "命令执行超时" on a timer thread, then clears completionBlock and
  /// writeDataBlock, also what the callback stored, and stops.
  void startMonitorTimer(ReplyHandler onTimeout);
  void stopMonitorTimer();

  // ---- Status ----

  /// Battery level as the recorder reports it. Link thread. Reports 1002; every other failure is level 0
  /// without an error.
  void getPower(LevelCompletion completion);
  /// Blocks up to 5 s. -1: no answer; 0: busy or not sent.
  std::int64_t getPower();

  /// "1.2.3". Link thread. Reports 1002; every other failure is "" without an error.
  void getFirmwareVersion(ValueCompletion<std::string> completion);
  /// Blocks up to 5 s. None: no answer or busy; "": not sent.
  std::optional<std::string> getFirmwareVersion();

  /// Two byte counts in the recorder's order. Link thread. Reports 1002 and the dispatcher error; an answer
  /// that does not decode is none without an error.
  void getCapacity(ValueCompletion<ByteCounts> completion);
  /// Blocks up to 5 s. None: no answer, busy, not sent or not decodable.
  std::optional<ByteCounts> getCapacity();

  // ---- Recording ----

  /// Starts a live recording of type 0 normal, 1 noise-reduced, 2 of a call, 3 of media, 4 ambient, into
  /// `toOutputFilePath`: created if missing, otherwise written over from its beginning without being cut, so
  /// that a longer file keeps its old tail. The file gets the recorder's audio packets as they come. A file
  /// that cannot be opened or written does not fail the start: the audio is lost, which is logged.
  /// The first notification that follows, of whatever kind, completes the start, on the queue
  /// "com.kwt.sdk.record". From then on nothing is pending, and queries may be sent; but while packets
  /// arrive, one of them completes the query on that queue, with what the query makes of no answer (1004 for
  /// a refusal or an empty packet). Queries on the recorder's own channel (files) also end the notifications,
  /// and with them the audio. A recording that the recorder ends is not reported: writeDataBlock() is empty
  /// then. An earlier download's stall watchdog goes on, and ends a recording that sends nothing.
  /// Reports, inside the call, 1002, 1003 "录音类型输入错误" (any other type), the dispatcher error, and an
  /// error of domain "std::exception" when no thread can be started; later the Bluetooth stack's error, on
  /// the link thread; 1004 "启动录音失败" (refused, or an empty notification). After a dispatcher's or the
  /// stack's error file and route stay until setWriteDataBlock(nullptr) and
  /// closeFileHandle(recordFileHandle()), or a stop. No time-out: without any notification the facade stays
  /// busy.
  void startRecordWithType(std::int64_t type, const std::string& toOutputFilePath, Completion completion);

  /// Ends the recording's file and asks the recorder to stop; audio that is still under way is dropped. Link
  /// thread. Reports 1002, the dispatcher error, and an error that comes with the answer. Completed by the
  /// recorder's answer; another notification that comes first, such as audio
  /// under way, frees the facade, and then the completion is never called: hosts wait with a limit of their
  /// own. A recorder that is not recording takes this for a start of type 4: both are the same frame.
  void stopRecord(Completion completion);

  /// Converts a recording, streamed or downloaded, with the platform's converter: OpusConvertTypeWav, or MP3
  /// (24 kbit/s) for every other type. Blocks until that is done; sends nothing and may run at any time.
  /// False when it fails; the converter logs why.
  bool decodeOpusFile(const std::string& inputPath, const std::string& toOutputFilePath,
                      std::int64_t withDecodeType);

  // ---- Flash file store. Files have consecutive 32-bit ids; sizes are multiples of 32768 bytes. ----

  /// Number of files and first id, both 0 for an empty store. Link thread. Reports 1002, and 1005
  /// "文件ID获取失败" for every other failure.
  void getFileNumAndFirstId(ValueCompletion<FlashInfo> completion);
  /// Blocks up to 5 s. None on any failure.
  std::optional<FlashInfo> getFileNumAndFirstId();

  /// One file's header; the id's low 32 bits are sent. Link thread. Reports 1002 and the dispatcher error; an
  /// answer that does not decode is none without an error.
  void getFileInfo(std::int64_t fileId, ValueCompletion<KWTFileHeader> completion);
  /// Blocks up to 5 s. None on any failure.
  std::optional<KWTFileHeader> getFileInfo(std::int64_t fileId);

  /// The headers of all files in id order, one exchange and a 3 ms pause each. Returns at once; the
  /// completion runs on the queue "com.kwt.getflashlist". Reports 1002 inside the call and 1005; a file whose
  /// query fails is left out.
  void getFlashFileList(ValueCompletion<std::vector<KWTFileHeader>> completion);

  /// Downloads the store's first file into `outputFilePath`, continuing at that file's current size, then
  /// tells the recorder and deletes the file there. Returns at once. `progress` (bytes written, total bytes)
  /// is called for every packet, `completion` before the recorder is told; both on the queue
  /// "com.kwt.getflashlist.download", a failed write's completion on the link thread. The file ends with the
  /// last packet's filler, less than one packet beyond the total. If the file could not be opened or written,
  /// the recorder keeps its copy. Reports 1002 inside the call, 1005, 1006 "获取文件信息失败", 1007
  /// "已下载文件长度大于待下载文件总长度", and the dispatcher error. A download whose packets stop coming is
  /// not reported: the watchdog ends it and logs "Timeout!". The watchdog outlives a finished download by
  /// 5 to 10 s and then clears whatever is pending; stopMonitorTimer after the completion avoids that.
  void downloadFirstFlashFile(const std::string& outputFilePath, Progress progress, Completion completion);

  /// Tells the recorder that a download succeeded. The completion gets the raw reply. Link thread. Reports
  /// 1002 and the dispatcher error.
  void notifyDownloadSuccess(ReplyHandler completion);
  /// Blocks up to 2 s. Always true.
  bool notifyDownloadSuccess();

  /// Deletes a file; the recorder accepts only the first. The completion gets {result code, second value}.
  /// Link thread. Reports 1002, the dispatcher error, and the recorder's result as the code: 1
  /// "删除失败，ID非系统第一个文件", 2 "删除失败，文件ID不存在", 3 "删除失败，文件正在使用中", 4
  /// "删除失败，文件系统为空", others "error!". A reply of another kind counts as success without a value.
  void deleteFile(std::int64_t fileId, ValueCompletion<ByteCounts> completion);

  /// Deletes the first file. Returns at once; the completion runs on the link thread, or on a queue
  /// "com.kwt.getflashlist" of its own for errors that need no answer. Reports what deleteFile reports; when
  /// the count query fails the recorder is asked to delete id 0.
  void deleteFirstFlashFile(Completion completion);

  // ---- Firmware update, on the firmware channel. Sizes and offsets in bytes; a segment has 8192. ----

  /// Installs the image in a file: prepare, partition selection, resume verification (always from 0), begin,
  /// configuration, transfer, bye, done. Returns at once; updates run one after the other on the queue
  /// "com.kwt.await", where the completion ("success" or none) is called; `progress` (bytes sent, image size)
  /// is called after every packet on "com.kwt.sdk.send".
  /// Reports 1011 "读取固件文件失败" before anything is sent; the errors of the steps below unchanged; 999
  /// "timeout" when one of the first five is not answered within 5 s; what uploadFirmWare reports; an error
  /// of domain "std::exception" when no thread can be started or the memory does not suffice. Transfer and
  /// bye have no time-out: a write or check that is never answered keeps this update, those behind it and the
  /// facade waiting. A host ends that with setCompletionBlock(nullptr) after it has cut the link: 1000, or
  /// 999 for the bye. Unlike other operations an update is not refused while another command is pending: it
  /// then fails with 1008, and the other command is dropped without a word.
  void updateFirmware(const std::string& imagePath, Progress progress,
                      ValueCompletion<std::string> completion);

  // The steps. Each returns at once; its completion (error, success) runs on the link thread, or inside the
  // call when the dispatcher refuses. Answered or refused, the first five clear what is pending, also another
  // command. They have no time-out.

  /// Reports 1008 "固件更新-准备失败" for every failure.
  void updatePrepare(StepCompletion completion);
  /// Reports 1010 "固件更新-分区选择错误" for every failure.
  void updateSelectionSide(StepCompletion completion);
  /// Any answer is success. Reports the dispatcher error.
  void updateResumeVerify(std::int64_t segmentSize, std::uint64_t offset, StepCompletion completion);
  /// Sets MTU to what the recorder offers, at most the peripheral's longest write; 0 without an answer.
  /// Reports the dispatcher error.
  void updateBegin(const Bytes& image, StepCompletion completion);
  /// Reports 1009 "固件更新-配置失败" for every failure.
  void updateConfig(const Bytes& image, StepCompletion completion);

  /// Sends the image from `offset` on, in packets of MTU bytes (at least 220) and with a check after every
  /// segment; keeps the confirmed offset in the settings under "KWTKey_" and the image's CRC-32, without
  /// flushing them. Copies the image; returns at once. The completion runs on "com.kwt.sdk.send", its value
  /// is always none; inside the call for no image, 1011 "固件更新失败-空数据", for an offset that is the
  /// image's size (nothing to do), and with an error of domain "std::exception" when memory is short or no
  /// thread can be started. An offset beyond the image counts as 0.
  /// Reports 1000 "蓝牙断开，停止固件传输", 1012 "固件更新-校验错误", and an error of domain
  /// "std::out_of_range", code 0: a packet holds at least 88 bytes, and fewer remain where there is room for
  /// more. No time-out.
  void uploadFirmWare(const std::optional<Bytes>& image, std::uint64_t offset, Progress progress,
                      ValueCompletion<std::string> completion);

  /// Sends one packet and blocks, without limit, until its write has been acknowledged or, where the link is
  /// not connected, completionBlock is cleared; not on the link thread. The completion runs before it
  /// returns, on the link thread. Reports the dispatcher error.
  void updateSendData(const Bytes& packet, ReplyHandler completion);
  /// Has the recorder compare a segment's CRC-32. Reports 1012 "固件更新-校验失败" for every failure.
  void updateCheckData(const Bytes& segment, StepCompletion completion);
  /// Reports 1013 "固件更新-结束失败" for every failure.
  void updateBye(StepCompletion completion);
  /// Sends the command that ends an update. Nobody answers: it stays pending until completionBlock is
  /// cleared.
  void updateDone();

 private:
  struct Impl;
  explicit KWTBluetoothHelper(Platform platform);
  std::unique_ptr<Impl> impl_;
};

}  // namespace kwtsdk
