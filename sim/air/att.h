#pragma once

#include <cstddef>
#include <cstdint>

#include <kwtsdk/bytes.h>

#include "sim/byte_order.h"

// Numbers of the Attribute Protocol, and the PDUs that are put together in several places.
namespace kwtsdk::sim::att {

inline constexpr std::size_t kDefaultMtu = 23, kLongestValue = 512;

enum Opcode : std::uint8_t {
  errorResponse = 0x01,
  exchangeMtuRequest = 0x02,
  findInformationRequest = 0x04,
  findByTypeValueRequest = 0x06,
  readByTypeRequest = 0x08,
  readRequest = 0x0A,
  readBlobRequest = 0x0C,
  readByGroupTypeRequest = 0x10,
  writeRequest = 0x12,
  prepareWriteRequest = 0x16,
  executeWriteRequest = 0x18,
  handleValueNotification = 0x1B,
  handleValueConfirmation = 0x1E,
  writeCommand = 0x52,
};

/// A response has the number that follows its request's; commands carry this bit.
inline constexpr std::uint8_t kCommandFlag = 0x40;

enum ErrorCode : std::uint8_t {
  success = 0x00,
  invalidHandle = 0x01,
  readNotPermitted = 0x02,
  writeNotPermitted = 0x03,
  invalidPdu = 0x04,
  requestNotSupported = 0x06,
  invalidOffset = 0x07,
  prepareQueueFull = 0x09,
  attributeNotFound = 0x0A,
  invalidAttributeValueLength = 0x0D,
  unlikelyError = 0x0E,
  unsupportedGroupType = 0x10,
  insufficientResources = 0x11,
  valueNotAllowed = 0x13,
};

enum DeclarationType : std::uint16_t {
  primaryService = 0x2800,
  secondaryService = 0x2801,
  characteristicDeclaration = 0x2803,
  clientCharacteristicConfiguration = 0x2902,
};

inline std::uint8_t responseTo(std::uint8_t request) { return static_cast<std::uint8_t>(request + 1); }

inline Bytes error(std::uint8_t request, std::uint16_t handle, std::uint8_t code) {
  Bytes response{errorResponse, request};
  appendLittle16(response, handle);
  response.push_back(code);
  return response;
}

}  // namespace kwtsdk::sim::att
