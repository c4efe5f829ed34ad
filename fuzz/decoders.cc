// Replies of any content to the decoders; what the library composes to the recorder's own readers, and back;
// pages in pieces to the check of pages.

#include <kwtsdk/cmd_response.h>

#include "codec/hex.h"
#include "codec/text_format.h"
#include "fuzz/input.h"
#include "session/page_check.h"
#include "sim/model/wire.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::fuzz {
namespace {

std::uint32_t number(Input& input) {
  return static_cast<std::uint32_t>(internal::hexToDecimal(input.take(4)));
}

void replies(Input& input) {
  const bool isHex = input.chance(2);
  const KWTCmdResponse::Reply reply = isHex ? internal::hexString(input.rest()) : input.text();
  for (std::int64_t type = 0; type < 20; ++type)
    static_cast<void>(KWTCmdResponse::responseWithCmdType(type, nullptr).isValidResponse(*reply));
  static_cast<void>(KWTCmdResponse::getPower(reply));
  static_cast<void>(KWTCmdResponse::getVersion(reply));
  static_cast<void>(KWTCmdResponse::getMTU(reply));
  static_cast<void>(KWTCmdResponse::getCapacityResult(reply));
  static_cast<void>(KWTCmdResponse::getFlashInfo(reply));
  static_cast<void>(KWTCmdResponse::getDeleteFileResult(reply));
  const auto header = KWTCmdResponse::getFileInfo(reply);
  require(!header || header->filesize() % wire::kBlockSize == 0, "a recording's size is whole blocks");
  std::uint64_t valid = 0;
  const auto result = KWTCmdResponse::writeDownloadData(reply, &valid, nullptr);
  const wire::DownloadPacket packet = wire::downloadPacket(reply);
  require(result >= 0 && result <= 2 && valid == packet.valid, "both decoders of a packet agree");
  require(packet.data().size() <= wire::kDownloadDataSize, "a packet's data fit its room");
  static_cast<void>(KWTCmdResponse::writeRecordData(reply, nullptr));
  if (isHex) require(internal::hexString(internal::toData(*reply)) == *reply, "hex is bytes and hex again");
}

void requests(Input& input) {
  const auto flipped = [](Bytes frame) { return frame.back() ^= 1, frame; };
  using Kind = sim::wire::FileRequest::Kind;
  const std::uint32_t id = number(input), offset = number(input);
  const auto isRead = [&](const Bytes& frame, Kind kind, std::uint32_t from) {
    const auto read = sim::wire::readFileRequest(frame);
    require(read && read->kind == kind && read->id == id && read->offset == from,
            "the recorder reads a request");
    for (const Bytes& damaged : {Bytes(frame.begin(), frame.end() - 1), flipped(frame)})
      require(!sim::wire::readFileRequest(damaged), "and none that is damaged");
  };
  isRead(wire::infoRequest(id), Kind::info, 0);
  isRead(wire::deleteRequest(id), Kind::deletion, 0);
  isRead(wire::downloadRequest(id, offset), Kind::download, offset);
  const auto deleted = KWTCmdResponse::getDeleteFileResult(
      internal::hexString(sim::wire::deletionReply(sim::wire::Deletion::inUse, id)));
  require(deleted == ByteCounts{3, id}, "a deletion's answer is read as it was written");
  const auto count = static_cast<std::uint16_t>(offset % 0xFFFF);
  const auto counted = KWTCmdResponse::getFlashInfo(internal::hexString(sim::wire::countReply(count, id)));
  require(counted && (counted->Num == count || count == 0 || id == 0xFFFFFFFF), "so is the count");
  const Bytes image = input.rest();
  require(image.size() < 4 || wire::versionOf(image).size() <= 11, "a version is three numbers");
  static_cast<void>(wire::configRequest(wire::identityOf(image).value_or("")));
}

void formats(Input& input) {
  const std::int64_t value = number(input);
  const Bytes argument = input.bytes();
  static_cast<void>(
      internal::formatText(input.text(), {value, std::string(argument.begin(), argument.end()), 7}));
}

/// However the bytes are cut, the check comes to the same.
void pages(Input& input) {
  const std::size_t piece = 1 + input.byte();
  const Bytes bytes = input.rest();
  session::detail::PageCheck whole, cut;
  whole.take(bytes);
  for (std::span<const std::uint8_t> left(bytes); !left.empty();
       left = left.subspan(std::min(piece, left.size())))
    cut.take(left.first(std::min(piece, left.size())));
  require(whole.state() == cut.state() && whole.whole() == cut.whole(),
          "pieces make no difference to a page");
  require(whole.whole() <= bytes.size(), "no page ends behind its bytes");
  whole.rewind();
  require(whole.position() == whole.whole(), "it goes back to the end of a page");
}

const Target decodersTarget("decoders", [](Input& input) {
  static constexpr void (*kKinds[])(Input&){replies, replies, requests, formats, pages, pages};
  kKinds[input.below(std::size(kKinds))](input);
});

}  // namespace
}  // namespace kwtsdk::fuzz
