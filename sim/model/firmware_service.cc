#include "sim/model/firmware_service.h"

#include <algorithm>
#include <utility>

#include "sim/model/wire.h"

namespace kwtsdk::sim {

std::optional<Bytes> FirmwareService::handle(const Bytes& frame) {
  return wire::isVersionQuery(frame) ? wire::versionReply(firmware_.version) : update_.handle(frame);
}

std::optional<Bytes> FirmwareUpdate::handle(const Bytes& frame) {
  if (wire::isData(frame)) {
    receive(std::span(frame).subspan(wire::kDataHead));
  } else if (wire::isDone(frame)) {
    install();
  } else if (const wire::StepForm* form = wire::stepOf(frame)) {
    return answer(*form, frame);
  }
  return std::nullopt;
}

std::optional<Bytes> FirmwareUpdate::answer(const wire::StepForm& form, const Bytes& frame) {
  if (form.step == UpdateStep::check) ++checks_;
  const UpdateTrouble* trouble = troubleAt(form.step);
  if (trouble && trouble->silent) return std::nullopt;

  const bool accepted = !trouble && form.fits(frame) && isDue(form.step) && take(form.step, frame);
  if (accepted) due_ = form.next;
  if (form.step == UpdateStep::check) endSegment(accepted);
  if (form.refusable) return wire::verdict(form, accepted);
  if (!accepted) return std::nullopt;
  return form.step == UpdateStep::begin ? wire::beginReply(offeredMtu())
                                        : wire::resumeReply(wire::readResume(frame));
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
      firmware_.lastResume = wire::readResume(frame);
      return true;
    case UpdateStep::begin:
      return announce(wire::readBegin(frame));
    case UpdateStep::configuration:
      received_.identity = wire::readConfiguration(frame);
      return true;
    case UpdateStep::check:
      return segmentIsRight(frame);
    case UpdateStep::bye:
      return imageIsRight();
  }
  return false;
}

bool FirmwareUpdate::announce(const wire::Announcement& announced) {
  received_.announced = announced;
  if (!wire::isImageSize(announced.size)) return false;
  received_.bytes.reserve(announced.size);
  return true;
}

std::uint16_t FirmwareUpdate::offeredMtu() const {
  // A data frame fits into one write. Linux has no plain write that is longer than this.
  constexpr std::size_t attHead = 3, longestWrite = 510;
  const std::size_t fitting = std::min(firmware_.linkMtu - attHead, longestWrite) - wire::kDataHead;
  return firmware_.updateMtu.value_or(static_cast<std::uint16_t>(fitting));
}

/// Data that the segment or the image has no room for are dropped; the check shows it.
void FirmwareUpdate::receive(std::span<const std::uint8_t> data) {
  Bytes& bytes = received_.bytes;
  const std::size_t end = std::min(received_.announced.size, received_.segmentAt + wire::kSegmentSize);
  if (due_ != UpdateStep::check || data.size() > end - bytes.size()) return;
  bytes.insert(bytes.end(), data.begin(), data.end());
}

bool FirmwareUpdate::segmentIsRight(const Bytes& check) const {
  const auto segment = std::span(received_.bytes).subspan(received_.segmentAt);
  return !segment.empty() && wire::crc32(segment) == wire::readCheck(check) &&
         (!firmware_.staging || firmware_.staging(received_.segmentAt, segment));
}

void FirmwareUpdate::endSegment(bool right) {
  if (due_ != UpdateStep::check) return;
  if (!right) received_.bytes.resize(received_.segmentAt);
  received_.segmentAt = received_.bytes.size();
}

bool FirmwareUpdate::imageIsRight() const {
  const Bytes& bytes = received_.bytes;
  return bytes.size() == received_.announced.size && wire::identityOf(bytes) == received_.identity &&
         wire::crc32(bytes) == received_.announced.crc;
}

void FirmwareUpdate::install() {
  if (due_ != UpdateStep::bye) return;
  if (!firmware_.slot || firmware_.slot(received_.bytes)) {
    firmware_.version = wire::versionOf(received_.bytes);
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
