#include "platform/opus/ogg_writer.h"

#include <opus/opus.h>

#include <new>
#include <random>
#include <string_view>

namespace kwtsdk::internal {

namespace {

using namespace std::string_view_literals;

// Version 1, mono, nothing to skip: where in its encoder's sound a recorder begins is not known; encoded
// from 16 kHz, no gain, mapping family 0.
constexpr auto kOpusHead = "OpusHead\x01\x01\0\0\x80\x3e\0\0\0\0\0"sv;
constexpr auto kOpusTags = "OpusTags\6\0\0\0kwtsdk\0\0\0\0"sv;

std::span<const std::uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

int samplesOfPacket(std::span<const std::uint8_t> packet) {
  constexpr int sampleRate = 48000;
  if (packet.empty()) return 0;
  return opus_packet_get_nb_samples(packet.data(), static_cast<opus_int32>(packet.size()), sampleRate);
}

}  // namespace

OggWriter::Stream::Stream() : ogg_stream_state{} {
  if (ogg_stream_init(this, static_cast<int>(std::random_device()())) != 0) throw std::bad_alloc();
}

OggWriter::OggWriter(ByteSink& file) : file_(file) {
  for (const auto header : {kOpusHead, kOpusTags}) {
    add(bytesOf(header), false);
    settle();
  }
}

void OggWriter::write(std::span<const std::uint8_t> packet) {
  const bool isPacket = samplesOfPacket(packet) > 0;
  if (!isPacket && held_.empty()) return;
  if (!held_.empty()) add(held_, false);
  constexpr unsigned oneFrame = 0xFC;  // of the first byte; without bytes of its own it is lost
  if (isPacket) {
    held_.assign(packet.begin(), packet.end());
  } else {
    held_.assign(1, static_cast<std::uint8_t>(held_.front() & oneFrame));
  }
}

void OggWriter::settle() {
  ogg_page page{};
  while (ogg_stream_flush(&stream_, &page) != 0) {
    file_.append({page.header, static_cast<std::size_t>(page.header_len)});
    file_.append({page.body, static_cast<std::size_t>(page.body_len)});
  }
}

void OggWriter::finish() {
  add(held_, true);
  settle();
}

void OggWriter::add(std::span<const std::uint8_t> packet, bool isLast) {
  const bool isHeader = number_ < 2;
  if (!isHeader) position_ += samplesOfPacket(packet);
  ogg_packet whole{};
  whole.packet = const_cast<unsigned char*>(packet.data());  // it is not written to
  whole.bytes = static_cast<long>(packet.size());
  whole.b_o_s = number_ == 0 ? 1 : 0;
  whole.e_o_s = isLast ? 1 : 0;
  whole.granulepos = position_;
  whole.packetno = number_++;
  if (ogg_stream_packetin(&stream_, &whole) != 0) throw std::bad_alloc();
}

}  // namespace kwtsdk::internal
