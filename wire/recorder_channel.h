#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <kwtsdk/bytes.h>
#include <kwtsdk/record_packet_result.h>
#include <kwtsdk/recorder_uuid.h>

// The recorder and file channel: live recordings, and the recordings in the recorder's flash. A frame: code,
// 81 (recording) or 82 (files), payload length (16-bit), payload, and where the payload of a file command
// varies the CRC-32 of length and payload. Ids and offsets travel as their low 32 bits. What is notified is
// looked at as hex text.
namespace kwtsdk::wire {

inline constexpr auto& kRecorderService = recorder_uuid::service;
inline constexpr auto& CHARACTERISTIC_WRITE = recorder_uuid::recorderWrite;
inline constexpr auto& CHARACTERISTIC_NOTIFY = recorder_uuid::recorderNotify;

// ---- Live recording ----

/// Whether there is a recording of that type, 0 to 4.
bool isRecordType(std::int64_t type);

/// The one of type 4 is the stop command too: the recorder tells the two apart by whether it records.
Bytes startRecordRequest(std::int64_t type);
Bytes stopRecordRequest();

/// How the answer to a stop begins, and a packet of audio.
inline constexpr std::string_view kStopped = "0080", kAudioPacket = "5001";

// Whole packets that refuse a recording, or end it.
inline constexpr std::string_view kRefusedInCall = "1280040000105400", kRefusedNotInCall = "1280040000115400",
                                  kEnded = "0801000100", kEndedByKey = "0801001100",
                                  kEndedByCall = "0801002100";

/// What a notification means to the recording that is under way; none or empty: Failed.
RecordPacketResult recordPacketResult(const std::optional<std::string>& packet);

// ---- Flash file store ----

/// The unit in which the recorder counts sizes, in bytes.
inline constexpr std::uint64_t kBlockSize = 32768;

Bytes countRequest();
Bytes infoRequest(std::int64_t fileId);

/// `offset` in bytes.
Bytes downloadRequest(std::int64_t fileId, std::uint64_t offset);
Bytes downloadNotice();
Bytes deleteRequest(std::int64_t fileId);

/// Bytes of a download's packet: head and data.
inline constexpr std::size_t kDownloadHeadSize = 12, kDownloadDataSize = 84,
                             kDownloadPacketSize = kDownloadHeadSize + kDownloadDataSize;

/// One notification as a download takes it.
struct DownloadPacket {
  enum class Kind { ignored, data, lastData, end } kind = Kind::ignored;
  std::uint64_t valid = 0;  // bytes of the recording that it carries

  /// What is written: all that the packet has room for, the filler behind the valid bytes included.
  std::span<const std::uint8_t> data() const;

  Bytes bytes{};
};
DownloadPacket downloadPacket(const std::optional<std::string>& packet);

// How the other answers begin.
inline constexpr std::string_view kFlashInfo = "01820800", kFileInfo = "02822400", kDeleteResult = "04820800";

}  // namespace kwtsdk::wire
