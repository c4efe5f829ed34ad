#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kwtsdk/error.h>
#include <kwtsdk/export.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/uuid.h>

namespace kwtsdk::bluez {

/// A Low Energy device that was heard.
struct FoundDevice {
  std::string address;                 // "00:1A:7D:DA:71:13"
  std::string name;                    // empty when it told none
  std::optional<std::int16_t> signal;  // RSSI in dBm; none when BlueZ does not know it
  std::vector<Uuid> services;          // those that it advertises
};

struct ScanFilter {
  std::vector<Uuid> services;  // devices that advertise one of these; empty: all
};

struct ScanResult {
  std::vector<FoundDevice> devices;  // the strongest first
  MaybeError error;
};

/// Looks for devices through BlueZ, the Bluetooth service of Linux, on the system bus.
class KWTSDK_EXPORT Scanner {
 public:
  /// `adapter` is a name such as "hci0"; empty: the first that has power. Contacts nobody yet.
  static std::shared_ptr<Scanner> create(std::shared_ptr<Scheduler> scheduler, std::string adapter = {});

  ~Scanner();
  Scanner(const Scanner&) = delete;
  Scanner& operator=(const Scanner&) = delete;

  /// Listens that long, or until stop(), and blocks meanwhile, up to 30 s more when BlueZ or the bus is slow.
  /// One scan at a time. Not on a thread that forwards events. Every error can come with devices that were
  /// found before it. Errors: Problem busUnreachable, notPermitted, serviceNotRunning, noAdapter, adapterOff,
  /// badArgument (a negative time), connectionLost, busFailure; or BlueZ's own.
  ScanResult scan(Duration time, const ScanFilter& filter = {});

  /// Ends the scan that runs; with none running, the next one ends as soon as it begins. Any thread, never
  /// blocks.
  void stop();

 private:
  class Impl;
  explicit Scanner(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace kwtsdk::bluez
