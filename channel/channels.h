#pragma once

namespace kwtsdk::internal {

// The recorder's three channels: framed status, recorder and file store, firmware.
inline constexpr char CHARACTERISTIC_FOR_COMMUNICATION_WRITE[] = "0000CA2A-0000-1000-8000-00805F9B34FB";
inline constexpr char CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY[] = "0000C92A-0000-1000-8000-00805F9B34FB";
inline constexpr char CHARACTERISTIC_WRITE[] = "4B1D9E07-53A6-42C8-B7F0-6E2A19820004";
inline constexpr char CHARACTERISTIC_NOTIFY[] = "4B1D9E07-53A6-42C8-B7F0-6E2A19820003";
inline constexpr char CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY[] = "77777777-7777-7777-7777-777777777777";

}  // namespace kwtsdk::internal
