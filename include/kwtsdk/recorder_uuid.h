#pragma once

/// By what a recorder is found and spoken to, for scan filters and for Bluetooth stacks of a host's own. In
/// the form that Uuid::fromString reads.
namespace kwtsdk::recorder_uuid {

/// The service that recorders advertise. Theirs are more; hosts look for characteristics.
inline constexpr char service[] = "4B1D9E07-53A6-42C8-B7F0-6E2A19820001";

/// Live recordings and the file store: written, notified.
inline constexpr char recorderWrite[] = "4B1D9E07-53A6-42C8-B7F0-6E2A19820004";
inline constexpr char recorderNotify[] = "4B1D9E07-53A6-42C8-B7F0-6E2A19820003";

/// Battery and storage: written, notified.
inline constexpr char statusWrite[] = "0000CA2A-0000-1000-8000-00805F9B34FB";
inline constexpr char statusNotify[] = "0000C92A-0000-1000-8000-00805F9B34FB";

/// Firmware version and update: written and notified.
inline constexpr char firmware[] = "77777777-7777-7777-7777-777777777777";

}  // namespace kwtsdk::recorder_uuid
