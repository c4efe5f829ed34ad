#include "sim/model/firmware_wire.h"

#include <algorithm>
#include <array>

#include "sim/byte_order.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim::wire {

namespace {

constexpr std::uint8_t kDataCode = 0x85;

/// Most frames are a code, the magic and what they carry.
constexpr std::size_t kMagicEnd = 5;
Bytes withMagic(std::uint8_t code) { return {code, 'B', 'E', 'S', 'T'}; }

constexpr std::size_t kResumeSize = 45, kResumeValuesAt = 33;
constexpr std::size_t kBodySize = 88, kBodyAt = 5;  // of the configuration

const std::array<StepForm, 7>& forms() {
  using enum UpdateStep;
  static const std::array<StepForm, 7> table{{
      {"prepare", prepare, {0x97, 1}, 2, 0, 0x98, true, partition},
      {"partition", partition, {0x90, 0}, 2, 0, 0x91, true, resume},
      {"resume", resume, withMagic(0x8C), kResumeSize, kMagicEnd, 0x8D, false, begin},
      {"begin", begin, withMagic(0x80), kMagicEnd + 8, 0, 0x81, false, configuration},
      {"configuration", configuration, {0x86, kBodySize, 0, 0, 0}, kBodyAt + kBodySize, 1, 0x87, true, check},
      {"check", check, withMagic(0x82), kMagicEnd + kCrcSize, 0, 0x83, true, check},
      {"bye", bye, {0x88}, 1, 0, 0x84, true, bye},
  }};
  return table;
}

template <class Predicate>
const StepForm* find(Predicate matches) {
  const auto* const found = std::ranges::find_if(forms(), matches);
  return found == forms().end() ? nullptr : found;
}

std::uint8_t replyCodeOf(UpdateStep step) {
  return find([step](const StepForm& form) { return form.step == step; })->replyCode;
}

}  // namespace

// ---- The image and its version ----

Bytes identityOf(std::span<const std::uint8_t> image) {
  const auto end = image.last(kIdentitySize);
  return {end[0], end[1], end[2], 0};
}

Bytes versionOf(std::span<const std::uint8_t> image) {
  const auto end = image.last(kIdentitySize);
  return {0, end[0], end[1], end[2]};
}

bool isVersionQuery(const Bytes& frame) { return frame == withMagic(0x8E); }

Bytes versionReply(const Bytes& version) {
  Bytes reply = withMagic(0x8F);
  append(reply, version);
  appendLittle32(reply, crc32(reply));
  return reply;
}

// ---- Updates ----

bool StepForm::fits(const Bytes& frame) const {
  if (frame.size() != size || !std::equal(head.begin(), head.end(), frame.begin())) return false;
  if (crcFrom == 0) return true;
  const std::size_t crcAt = size - kCrcSize;
  return crc32(std::span(frame).subspan(crcFrom, crcAt - crcFrom)) == little32(frame, crcAt);
}

const StepForm* stepOf(const Bytes& frame) {
  return find([&frame](const StepForm& form) { return !frame.empty() && form.head[0] == frame[0]; });
}

const StepForm* stepNamed(std::string_view name) {
  return find([name](const StepForm& form) { return form.name == name; });
}

ResumeVerification readResume(const Bytes& frame) {
  return {little32(frame, kResumeValuesAt), little32(frame, kResumeValuesAt + 4)};
}

Announcement readBegin(const Bytes& frame) {
  return {little32(frame, kMagicEnd), little32(frame, kMagicEnd + 4)};
}

Bytes readConfiguration(const Bytes& frame) {
  return {frame.begin() + kBodyAt, frame.begin() + kBodyAt + kIdentitySize};
}

std::uint32_t readCheck(const Bytes& frame) { return little32(frame, kMagicEnd); }

Bytes verdict(const StepForm& form, bool accepted) {
  return {form.replyCode, static_cast<std::uint8_t>(accepted)};
}

Bytes resumeReply(const ResumeVerification& asked) {
  Bytes reply = withMagic(replyCodeOf(UpdateStep::resume));
  appendLittle32(reply, asked.offset);
  appendLittle32(reply, asked.segmentSize);
  return reply;
}

Bytes beginReply(std::uint16_t mtu) {
  Bytes reply = withMagic(replyCodeOf(UpdateStep::begin));
  append(reply, Bytes{1, 0, 0, 0});
  appendLittle16(reply, mtu);
  return reply;
}

bool isData(const Bytes& frame) { return !frame.empty() && frame[0] == kDataCode; }

bool isDone(const Bytes& frame) { return frame == withMagic(0x92); }

}  // namespace kwtsdk::sim::wire
