#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <kwtsdk/bytes.h>
#include <kwtsdk/export.h>
#include <kwtsdk/sim/firmware_update.h>
#include <kwtsdk/sim/microphone.h>
#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

/// The recorder's three protocols; each has its own characteristics.
enum class Channel { status, recorder, firmware };

struct Notification {
  Channel channel;
  Bytes value;
};

/// What ends each recording by itself, as soon as it has lasted that long, counted in whole packets of sound.
/// A line of a device script is such a name without "After" and a duration.
struct RecordingEnds {
  std::optional<Duration> keyAfter{};   // the key is pressed
  std::optional<Duration> callAfter{};  // a call is entered
};

/// The recorder without its radio: frames in, notifications out. A frame that is malformed or fails its CRC
/// gets no answer. Safe on any thread.
class KWTSDK_EXPORT RecorderModel {
 public:
  explicit RecorderModel(std::shared_ptr<RecordingStore> store);
  ~RecorderModel();
  RecorderModel(const RecorderModel&) = delete;
  RecorderModel& operator=(const RecorderModel&) = delete;

  void setBatteryLevel(std::uint32_t level);

  /// As sent, with the leading zero byte: {0, 1, 2, 3} is version 1.2.3.
  void setVersion(Bytes version);

  /// The store's size in blocks; what the recordings leave of it is free.
  void setTotalBlocks(std::uint16_t blocks);

  /// Sends the end marker also after a short last packet, which ends a download by itself.
  void setAlwaysEndMarker(bool always);

  /// What live recordings hear, from the next start on. Null, as at first: silence.
  void setMicrophone(std::shared_ptr<Microphone> microphone);

  /// In a call only a call recording can start, outside none. Entering a call ends a recording.
  void setInCall(bool inCall);

  /// Ends a recording. Does nothing while there is none.
  void pressKey();

  /// In every recording until set to none; one of them, or all.
  void setKeyAfter(std::optional<Duration> recorded);
  void setCallAfter(std::optional<Duration> recorded);
  void setRecordingEnds(const RecordingEnds& ends);

  /// Puts an image of 4 bytes to 64 MiB on the recorder, which answers its version from then on: the first
  /// three of its last four bytes. Does not use the slot. Throws std::invalid_argument for any other size.
  void setFirmware(Bytes image);

  /// The image last put there, by an update or setFirmware.
  std::optional<Bytes> installedImage() const;

  /// Where an update's image is kept as well. Called on the link's thread, under the model's lock: it must
  /// not call the model. None, as at first: in memory alone.
  void setFirmwareSlot(FirmwareSlot slot);

  /// Where an update's segments are kept as they come; false: there is no room, and the segment's check is
  /// refused. As the slot's otherwise.
  void setFirmwareStaging(FirmwareStaging staging);

  /// Replaces what went wrong in updates so far.
  void setUpdateTroubles(std::vector<UpdateTrouble> troubles);

  /// The MTU that updates are offered. None, as at first: what fits one write, the link's ATT MTU less 4 and
  /// at most 509.
  void setUpdateMtu(std::optional<std::uint16_t> mtu);

  /// The last one that the recorder answered.
  std::optional<ResumeVerification> lastResume() const;

  /// For tests of what a host sends: gets every frame that is written, in order, also those that have no
  /// answer, such as an update's data. False: the recorder never sees it; the link acknowledges it all the
  /// same. Runs on the link's thread.
  using FrameFilter = std::function<bool(Channel channel, const Bytes& frame)>;
  void setFrameFilter(FrameFilter filter);

  /// For tests of misbehaving recorders: gets every notification before it is sent, with the frame that asked
  /// for it (of a recording that the recorder ends: the one that started it), and gives what is sent instead;
  /// none: nothing is sent. Runs on the link's thread.
  using ReplyFilter = std::function<std::optional<Bytes>(const Bytes& request, Bytes reply)>;
  void setReplyFilter(ReplyFilter filter);

  // ---- The link's side ----

  /// The link's ATT MTU; 247 at first.
  void setLinkMtu(std::size_t mtu);

  /// Takes a frame written to the channel; gives the answer, if any, sent on the same channel. What the frame
  /// sets going, answers of live recordings included, comes as packets.
  std::optional<Bytes> write(Channel channel, const Bytes& frame);

  /// Whether packets are ready to be sent, and the next of them; none when there is no more.
  bool streaming() const;
  std::optional<Notification> nextPacket();

  /// Whether a recording runs. While it does, the link calls recordPacket() for each
  /// Microphone::kPacketDuration that passes: that makes the next packet of sound ready.
  bool recording() const;
  void recordPacket();

  /// Ends every stream and recording; drops an update under way.
  void linkLost();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kwtsdk::sim
