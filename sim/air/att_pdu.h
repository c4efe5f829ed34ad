#pragma once

#include <cstdint>
#include <utility>

#include <kwtsdk/bytes.h>

#include "sim/air/att.h"
#include "sim/air/att_server.h"
#include "sim/byte_order.h"

// How responses are put together.
namespace kwtsdk::sim {

inline std::uint8_t responseTo(std::uint8_t request) { return static_cast<std::uint8_t>(request + 1); }

inline AttReaction answer(Bytes response) { return {std::move(response), std::nullopt, std::nullopt}; }

inline Bytes errorResponse(std::uint8_t request, std::uint16_t handle, std::uint8_t code) {
  Bytes response{att::errorResponse, request};
  appendLittle16(response, handle);
  response.push_back(code);
  return response;
}

inline AttReaction refuse(std::uint8_t request, std::uint16_t handle, std::uint8_t code) {
  return answer(errorResponse(request, handle, code));
}

}  // namespace kwtsdk::sim
