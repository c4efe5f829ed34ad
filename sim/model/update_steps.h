#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/firmware_update.h>

namespace kwtsdk::sim {

/// How a step's frame looks and what follows from it.
struct StepForm {
  std::string_view name;  // in device scripts
  UpdateStep step;
  Bytes head;           // the frame begins with it
  std::size_t size;     // of the frame
  std::size_t crcFrom;  // the frame ends with the CRC of the bytes from here on; 0: it does not
  std::uint8_t replyCode;
  bool refusable;   // the reply is the code and 1 or 0
  UpdateStep next;  // what is due once the step has been taken

  bool fits(const Bytes& frame) const;
};

/// Null when there is none.
const StepForm* stepOfCode(std::uint8_t code);
const StepForm* stepNamed(std::string_view name);

}  // namespace kwtsdk::sim
