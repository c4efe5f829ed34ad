#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/recorder_model.h>

/// The recorder's side of its protocol: each of its numbers stands here or, the firmware channel's, in
/// firmware_wire.h, and nowhere else in the simulation. None is taken from the library, which reads what
/// these functions write: a mistake would have to be made twice to go unnoticed.
namespace kwtsdk::sim::wire {

// ---- Services and characteristics ----

/// What the recorder advertises, by which centrals find it: the service of the recorder's channel.
inline constexpr const char* kRecorderService = "4B1D9E07-53A6-42C8-B7F0-6E2A19820001";
/// The other services' UUIDs are the simulation's own choice: hosts look for characteristics.
inline constexpr const char *kStatusService = "4B1D9E07-53A6-42C8-B7F0-6E2A19821001",
                            *kFirmwareService = "4B1D9E07-53A6-42C8-B7F0-6E2A19822001";
inline constexpr const char *kStatusWrite = "CA2A", *kStatusNotify = "C92A",
                            *kRecorderWrite = "4B1D9E07-53A6-42C8-B7F0-6E2A19820004",
                            *kRecorderNotify = "4B1D9E07-53A6-42C8-B7F0-6E2A19820003",
                            *kFirmware = "77777777-7777-7777-7777-777777777777";

/// The CRC-32 of IEEE 802.3, which every channel uses.
inline constexpr std::size_t kCrcSize = 4;
std::uint32_t crc32(std::span<const std::uint8_t> bytes);

// ---- Recorder's channel: the file store. Readers give none for a frame that is another one or malformed.
// ----

/// The blocks that `size` bytes take; none when they do not fit the 16 bits that there are for them.
std::optional<std::uint16_t> blocksOf(std::uint64_t size);

/// The id after `id`: 0 and ids near FFFFFFFF, which says "no file", are never given.
inline constexpr std::uint32_t kGreatestFirstId = 0x7FFFFFFF;
constexpr std::uint32_t idAfter(std::uint32_t id) { return id >= kGreatestFirstId ? 1 : id + 1; }

struct FileRequest {
  enum class Kind { count, info, download, notice, deletion } kind;
  std::uint32_t id = 0, offset = 0;
};
std::optional<FileRequest> readFileRequest(const Bytes& frame);

enum class Deletion : std::uint32_t { done = 0, notTheFirst = 1, noSuchId = 2, inUse = 3, storeEmpty = 4 };

Bytes countReply(std::size_t files, std::uint32_t firstId);
Bytes infoReply(const std::optional<RecordingInfo>& recording);
Bytes noticeReply();
Bytes deletionReply(Deletion result, std::uint32_t id);

/// A packet of a download: its head, and room for data.
inline constexpr std::size_t kPacketSize = 96, kPacketHead = 12, kPacketData = kPacketSize - kPacketHead;

/// With filler where `valid` bytes of data belong and behind them.
Bytes dataPacket(std::uint32_t number, std::size_t valid);
Bytes endMarker(std::uint32_t number);

// ---- Recorder's channel: live recordings ----

enum class RecordingType : std::uint8_t { normal, noiseReduced, ofCall, ofMedia, ambient };

struct RecordingCommand {
  RecordingType type;  // of the recording to start
  bool orStop;         // of one that runs, instead
};
std::optional<RecordingCommand> readRecordingCommand(const Bytes& frame);

enum class StartRefusal : std::uint8_t { inCall = 0x10, notInCall = 0x11 };

Bytes startedEvent(RecordingType type);
Bytes refusedEvent(StartRefusal reason);
Bytes stopReply();
Bytes audioPacket(const Bytes& opus);

/// Why the recorder ends a recording by itself.
struct Ending {
  std::uint8_t reason;
  std::string_view keyword;  // in device scripts
  std::optional<Duration> RecordingEnds::*after;
};
inline constexpr Ending kByKey{0x11, "key", &RecordingEnds::keyAfter},
    kByCall{0x21, "call", &RecordingEnds::callAfter};
/// Where several are due at once, the first ends the recording.
inline constexpr std::array kEndings{&kByKey, &kByCall};

inline constexpr std::uint8_t kEndedByHost = 0x01;
Bytes endEvent(std::uint8_t reason);

}  // namespace kwtsdk::sim::wire
