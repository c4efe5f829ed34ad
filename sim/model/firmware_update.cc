#include "sim/model/firmware_update.h"

#include <algorithm>
#include <utility>

#include "codec/crc32.h"
#include "sim/model/firmware_image.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace {

constexpr std::size_t kSegmentSize = 8192;
constexpr std::uint8_t kDataCode = 0x85;
constexpr std::size_t kHeadEnd = 5;
constexpr std::size_t kResumeOffsetAt = 33, kResumeSizeAt = 37;

}  // namespace

std::optional<Bytes> FirmwareUpdate::handle(const Bytes& frame) {
  static const Bytes done{0x92, 'B', 'E', 'S', 'T'};
  if (frame.empty()) return std::nullopt;
  if (frame[0] == kDataCode) {
    receive(std::span(frame).subspan(1));
  } else if (frame == done) {
    install();
  } else if (const StepForm* form = stepOfCode(frame[0])) {
    return answer(*form, frame);
  }
  return std::nullopt;
}

std::optional<Bytes> FirmwareUpdate::answer(const StepForm& form, const Bytes& frame) {
  if (form.step == UpdateStep::check) ++checks_;
  const UpdateTrouble* trouble = troubleAt(form.step);
  if (trouble && trouble->silent) return std::nullopt;

  const bool accepted = !trouble && form.fits(frame) && isDue(form.step) && take(form.step, frame);
  if (accepted) due_ = form.next;
  if (form.step == UpdateStep::check) endSegment(accepted);
  if (form.refusable) return Bytes{form.replyCode, static_cast<std::uint8_t>(accepted)};
  if (!accepted) return std::nullopt;

  Bytes reply{form.replyCode, 'B', 'E', 'S', 'T'};
  const Bytes content =
      form.step == UpdateStep::begin ? offer() : Bytes(frame.begin() + kResumeOffsetAt, frame.end() - 4);
  reply.insert(reply.end(), content.begin(), content.end());
  return reply;
}

const UpdateTrouble* FirmwareUpdate::troubleAt(UpdateStep step) const {
  const auto found = std::ranges::find_if(firmware_.troubles, [&](const UpdateTrouble& trouble) {
    return trouble.step == step && (step != UpdateStep::check || trouble.check == checks_);
  });
  return found == firmware_.troubles.end() ? nullptr : &*found;
}

bool FirmwareUpdate::isDue(UpdateStep step) const {
  return step == UpdateStep::prepare || due_ == (step == UpdateStep::bye ? UpdateStep::check : step);
}

bool FirmwareUpdate::take(UpdateStep step, const Bytes& frame) {
  switch (step) {
    case UpdateStep::prepare:
      reset();
      return true;
    case UpdateStep::partition:
      return true;
    case UpdateStep::resume:
      firmware_.lastResume = {little32(frame, kResumeOffsetAt), little32(frame, kResumeSizeAt)};
      return true;
    case UpdateStep::begin:
      return announce(frame);
    case UpdateStep::configuration:
      received_.identity.assign(frame.begin() + kHeadEnd, frame.begin() + kHeadEnd + kIdentitySize);
      return true;
    case UpdateStep::check:
      return segmentIsRight(frame);
    case UpdateStep::bye:
      return imageIsRight();
  }
  return false;
}

bool FirmwareUpdate::announce(const Bytes& frame) {
  received_.announced = little32(frame, kHeadEnd);
  received_.crc = little32(frame, kHeadEnd + 4);
  if (!isImageSize(received_.announced)) return false;
  received_.bytes.reserve(received_.announced);
  return true;
}

Bytes FirmwareUpdate::offer() const {
  // A data frame, its code included, fits into one write. Linux has no plain write that is longer than this.
  constexpr std::size_t attHead = 3, longestWrite = 510, code = 1;
  const std::size_t fitting = std::min(firmware_.linkMtu - attHead, longestWrite) - code;
  Bytes offer{1, 0, 0, 0, 0, 0};
  putLittle16(offer, 4, firmware_.updateMtu.value_or(static_cast<std::uint16_t>(fitting)));
  return offer;
}

/// Data that the segment or the image has no room for are dropped; the check shows it.
void FirmwareUpdate::receive(std::span<const std::uint8_t> data) {
  Bytes& bytes = received_.bytes;
  const std::size_t end = std::min(received_.announced, received_.segmentAt + kSegmentSize);
  if (due_ != UpdateStep::check || data.size() > end - bytes.size()) return;
  bytes.insert(bytes.end(), data.begin(), data.end());
}

bool FirmwareUpdate::segmentIsRight(const Bytes& check) const {
  const auto segment = std::span(received_.bytes).subspan(received_.segmentAt);
  return !segment.empty() && internal::crc32Value(segment) == little32(check, kHeadEnd);
}

void FirmwareUpdate::endSegment(bool right) {
  if (due_ != UpdateStep::check) return;
  if (!right) received_.bytes.resize(received_.segmentAt);
  received_.segmentAt = received_.bytes.size();
}

bool FirmwareUpdate::imageIsRight() const {
  return received_.bytes.size() == received_.announced && identityOf(received_.bytes) == received_.identity &&
         internal::crc32Value(received_.bytes) == received_.crc;
}

void FirmwareUpdate::install() {
  if (due_ != UpdateStep::bye) return;
  if (!firmware_.slot || firmware_.slot(received_.bytes)) {
    firmware_.version = versionOf(received_.bytes);
    firmware_.image = std::move(received_.bytes);
  }
  reset();
}

void FirmwareUpdate::reset() {
  due_ = UpdateStep::prepare;
  checks_ = 0;
  received_ = {};
}

}  // namespace kwtsdk::sim
