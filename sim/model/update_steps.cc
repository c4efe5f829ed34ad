#include "sim/model/update_steps.h"

#include <algorithm>
#include <array>
#include <span>

#include "codec/crc32.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace {

const std::array<StepForm, 7>& forms() {
  using enum UpdateStep;
  static const std::array<StepForm, 7> table{{
      {"prepare", prepare, {0x97, 1}, 2, 0, 0x98, true, partition},
      {"partition", partition, {0x90, 0}, 2, 0, 0x91, true, resume},
      {"resume", resume, {0x8C, 'B', 'E', 'S', 'T'}, 45, 5, 0x8D, false, begin},
      {"begin", begin, {0x80, 'B', 'E', 'S', 'T'}, 13, 0, 0x81, false, configuration},
      {"configuration", configuration, {0x86, 0x58, 0, 0, 0}, 93, 1, 0x87, true, check},
      {"check", check, {0x82, 'B', 'E', 'S', 'T'}, 9, 0, 0x83, true, check},
      {"bye", bye, {0x88}, 1, 0, 0x84, true, bye},
  }};
  return table;
}

template <class Predicate>
const StepForm* find(Predicate matches) {
  const auto* const found = std::ranges::find_if(forms(), matches);
  return found == forms().end() ? nullptr : found;
}

}  // namespace

bool StepForm::fits(const Bytes& frame) const {
  if (frame.size() != size || !std::equal(head.begin(), head.end(), frame.begin())) return false;
  if (crcFrom == 0) return true;
  const std::size_t crcAt = size - 4;
  return internal::crc32Value(std::span(frame).subspan(crcFrom, crcAt - crcFrom)) == little32(frame, crcAt);
}

const StepForm* stepOfCode(std::uint8_t code) {
  return find([code](const StepForm& form) { return form.head[0] == code; });
}

const StepForm* stepNamed(std::string_view name) {
  return find([name](const StepForm& form) { return form.name == name; });
}

}  // namespace kwtsdk::sim
