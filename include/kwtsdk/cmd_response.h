#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/callbacks.h>
#include <kwtsdk/export.h>
#include <kwtsdk/file_header.h>
#include <kwtsdk/files.h>

namespace kwtsdk {

/// The decoders of the recorder's replies, and a check of raw replies for hosts that observe them. Replies
/// are lower-case hex, two characters per byte, or none. Pure functions but for the two that write;
/// any thread.
class KWTSDK_EXPORT KWTCmdResponse {
 public:
  static KWTCmdResponse responseWithCmdType(std::int64_t cmdType, ReplyHandler completion);

  /// Whether `reply` looks like the answer to cmdType(); types without a check accept anything. Case matters.
  bool isValidResponse(const std::string& reply) const;

  std::int64_t cmdType() const { return cmdType_; }
  void setCmdType(std::int64_t cmdType) { cmdType_ = cmdType; }
  ReplyHandler completion() const { return completion_; }
  void setCompletion(ReplyHandler completion) { completion_ = std::move(completion); }

  using Reply = std::optional<std::string>;

  /// Battery level, bytes 24 to 27; 0 for fewer than 56 characters.
  static std::uint64_t getPower(const Reply& reply);

  /// Firmware version, "1.2.3": the bytes between the first 5 and the last 4 without leading zero bytes; ""
  /// for fewer than 18 characters.
  static std::string getVersion(const Reply& reply);

  /// Transfer size in bytes: the last 2 bytes; 0 for fewer than 4 characters.
  static std::int64_t getMTU(const Reply& reply);

  /// Capacity: two byte counts in reply order; none unless 64 characters that begin "99ec3a00b2".
  static std::optional<ByteCounts> getCapacityResult(const Reply& reply);

  /// Count and first id; both 0 for the empty store. None unless it begins "01820800" and has 24 characters.
  static std::optional<FlashInfo> getFlashInfo(const Reply& reply);

  /// One file's header, whatever its exist says; none unless it begins "02822400" and has a 32-byte record.
  static std::optional<KWTFileHeader> getFileInfo(const Reply& reply);

  /// {result code, second value}; with 16 to 23 characters {code, 0}; none for less or unless it begins
  /// "04820800".
  static std::optional<ByteCounts> getDeleteFileResult(const Reply& reply);

  /// Writes one data packet's bytes, all that it has room for, also when fewer are valid, to the file and
  /// stores the number of valid bytes in `writenSize`; either may be null. Returns 0: taken or ignored, more
  /// to come; 1: last data; 2: end marker. Blocks for the disk.
  static std::int64_t writeDownloadData(const Reply& reply, std::uint64_t* writenSize,
                                        const std::shared_ptr<FileHandle>& toFileHandle);

  /// Writes one audio packet of a live recording (it begins "5001") to the file, whole and as it came; a null
  /// file drops it. Returns a RecordPacketResult; packets of no known kind are ignored. Blocks for the disk.
  static std::int64_t writeRecordData(const Reply& reply, const std::shared_ptr<FileHandle>& toFileHandle);

 private:
  KWTCmdResponse(std::int64_t cmdType, ReplyHandler completion)
      : cmdType_(cmdType), completion_(std::move(completion)) {}

  std::int64_t cmdType_;
  ReplyHandler completion_;
};

}  // namespace kwtsdk
