#pragma once

#include <cstdint>

namespace kwtsdk {

/// The kind of a command; each is written to one characteristic (docs/protocol.md).
enum KWTCmdType : std::int64_t {
  KWTCmdTypeNone = 0,  // no write acknowledged yet: notifications are dropped
  KWTCmdTypeGetPower = 1,
  KWTCmdTypeGetFirmwareVersion = 2,
  KWTCmdTypeGetFileNumAndFirstId = 3,
  KWTCmdTypeGetFileInfo = 4,
  KWTCmdTypeDownloadFile = 5,
  KWTCmdTypeNotifyDownloadSuccess = 6,
  KWTCmdTypeDeleteFile = 7,
  KWTCmdTypeStartRecord = 8,
  KWTCmdTypeStopRecord = 9,
  KWTCmdTypeGetCapacity = 10,
  KWTCmdTypeUpdatePrepare = 11,  // also the partition selection
  KWTCmdTypeUpdateResumeVerify = 12,
  KWTCmdTypeUpdateBegin = 13,
  KWTCmdTypeUpdateConfig = 14,
  KWTCmdTypeUpdateSendData = 15,  // completes on its write acknowledgement
  KWTCmdTypeUpdateCheckData = 16,
  KWTCmdTypeUpdateBye = 17,
  KWTCmdTypeUpdateDone = 18,
};

}  // namespace kwtsdk
