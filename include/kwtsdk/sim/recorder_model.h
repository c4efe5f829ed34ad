#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include <kwtsdk/bytes.h>
#include <kwtsdk/export.h>
#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

/// The recorder's three protocols; each has its own characteristics.
enum class Channel { status, recorder, firmware };

struct Notification {
  Channel channel;
  Bytes value;
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

  /// For tests of misbehaving recorders: gets every notification before it is sent, with the frame that asked
  /// for it, and gives what is sent instead; none: nothing is sent. Runs on the link's thread.
  using ReplyFilter = std::function<std::optional<Bytes>(const Bytes& request, Bytes reply)>;
  void setReplyFilter(ReplyFilter filter);

  // ---- The link's side ----

  /// Takes a frame written to the channel; gives the answer, if any, sent on the same channel.
  std::optional<Bytes> write(Channel channel, const Bytes& frame);

  /// Whether a stream has packets left, and the next of them; none when it has ended.
  bool streaming() const;
  std::optional<Notification> nextPacket();

  /// Ends every stream.
  void linkLost();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kwtsdk::sim
