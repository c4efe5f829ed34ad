#pragma once

#include <array>
#include <cstdint>

#include <kwtsdk/error.h>

namespace kwtsdk::internal {

// The library's own error codes and texts; the texts are shown to users as they stand.

inline constexpr char kErrorDomain[] = "com.kwt.sdk";
inline constexpr char kDescriptionKey[] = "NSLocalizedDescription";

inline Error transferDisconnectedError() { return errorWithInfo(1000, "蓝牙断开，停止固件传输"); }
inline Error monitorTimeoutError() { return errorWithInfo(999, "命令执行超时"); }
inline Error disconnectedError() { return errorWithInfo(1001, "蓝牙断开连接"); }
inline Error characteristicNotFoundError(const std::string& uuid) {
  return errorWithInfo(1001, "找不到特征值：%@", uuid);
}
inline Error busyError() { return errorWithInfo(1002, "已有操作在进行中"); }
inline Error dispatcherBusyError(std::int64_t cmdType) {
  return errorWithInfo(1002, "cmdType:%d, 已有操作在进行中", cmdType);
}
inline Error recordTypeError() { return errorWithInfo(1003, "录音类型输入错误"); }
inline Error recordStartError() { return errorWithInfo(1004, "启动录音失败"); }
inline Error fileIdError() { return errorWithInfo(1005, "文件ID获取失败"); }
inline Error fileInfoError() { return errorWithInfo(1006, "获取文件信息失败"); }
inline Error longerThanFileError() { return errorWithInfo(1007, "已下载文件长度大于待下载文件总长度"); }
inline Error updatePrepareError() { return errorWithInfo(1008, "固件更新-准备失败"); }
inline Error updateConfigError() { return errorWithInfo(1009, "固件更新-配置失败"); }
inline Error updateSelectionError() { return errorWithInfo(1010, "固件更新-分区选择错误"); }
inline Error unreadableImageError() { return errorWithInfo(1011, "读取固件文件失败"); }
inline Error emptyImageError() { return errorWithInfo(1011, "固件更新失败-空数据"); }
inline Error checkFailedError() { return errorWithInfo(1012, "固件更新-校验失败"); }    // of one check
inline Error transferCheckError() { return errorWithInfo(1012, "固件更新-校验错误"); }  // of the transfer
inline Error updateByeError() { return errorWithInfo(1013, "固件更新-结束失败"); }

/// The recorder's answer to a deletion; its code is the error's, from 1 on.
inline MaybeError deletionError(std::uint64_t code) {
  constexpr std::array results{"删除失败，ID非系统第一个文件", "删除失败，文件ID不存在",
                               "删除失败，文件正在使用中", "删除失败，文件系统为空"};
  if (code == 0) return std::nullopt;
  return errorWithInfo(static_cast<std::int64_t>(code),
                       code <= results.size() ? results.at(code - 1) : nullptr);
}

/// What the host's objects or the system threw; the log has the details.
inline Error exceptionError(const char* text) { return {"std::exception", 0, {{kDescriptionKey, text}}}; }

/// Made by the first call, which has to come early: when it is needed there may be no memory for it.
inline const MaybeError& noResourcesError() {
  static const MaybeError error =
      exceptionError("There was no thread or no memory left; close something and try again.");
  return error;
}

/// How an error, or its absence, reads in a log line.
std::string description(const MaybeError& error);

}  // namespace kwtsdk::internal
