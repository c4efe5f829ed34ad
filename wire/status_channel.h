#pragma once

#include <string>

#include <kwtsdk/bytes.h>

// The framed status channel: what is asked begins 99 EC 2A 02 B2, what is answered 99 EC. Answers are decoded
// by KWTCmdResponse.
namespace kwtsdk::wire {

inline constexpr char CHARACTERISTIC_FOR_COMMUNICATION_WRITE[] = "0000CA2A-0000-1000-8000-00805F9B34FB";
inline constexpr char CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY[] = "0000C92A-0000-1000-8000-00805F9B34FB";

// A frame: header, payload length (16-bit), payload, CRC-32 of the payload. The payload's last byte selects
// the query.
inline constexpr char COMMAND_POWER[] = "99EC2A02B20A0001000000000000001003A34083DF";
Bytes powerRequest();
Bytes capacityRequest();

/// Whether it is complete and says that it is a battery level.
bool isPowerReply(const std::string& reply);

}  // namespace kwtsdk::wire
