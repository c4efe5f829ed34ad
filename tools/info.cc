#include <algorithm>
#include <optional>

#include "tools/command_line.h"
#include "tools/words.h"

namespace kwtsdk::tool {
namespace {

using Storage = std::vector<std::uint64_t>;

struct Space {
  std::uint64_t total, free;
};

/// The recorder tells two numbers, and not which is which. What the recordings take shows it, if that is the
/// difference: the greater one then is all there is, the other one what is left.
std::optional<Space> spaceIn(const Storage& storage, std::uint64_t recorded) {
  if (storage.size() != 2) return std::nullopt;
  const auto [free, total] = std::minmax(storage[0], storage[1]);
  return total - free == recorded ? std::optional(Space{total, free}) : std::nullopt;
}

void showStorage(const Storage& storage, std::uint64_t recorded, Output& output) {
  output.set("storage", storage);
  const auto space = spaceIn(storage, recorded);
  if (space) {
    output.set("total", space->total);
    output.set("free", space->free);
    return output.line("Storage     " + sizeText(space->free) + " free of " + sizeText(space->total));
  }
  std::string sizes;
  for (const std::uint64_t size : storage) sizes += (sizes.empty() ? "" : " and ") + sizeText(size);
  output.line("Storage     " + sizes + " (the recorder does not say which is free)");
}

void showInfo(const Environment& environment, Output& output) {
  const auto recorder = openRecorder(environment);
  const auto limits = limitsOfQuery(environment);
  const std::uint64_t battery = valueOf(recorder->battery(limits).wait());
  output.line("Battery     " + batteryText(battery));
  output.set("battery", battery);

  const std::string version = valueOf(recorder->firmware(limits).wait());
  output.line("Firmware    " + version);
  output.set("firmware", version);

  const auto storage = valueOf(recorder->storage(limits).wait());
  const auto recordings = valueOf(recorder->recordings(limits).wait());
  std::uint64_t recorded = 0;
  for (const auto& recording : recordings) recorded += recording.bytes;
  output.line("Recordings  " + std::to_string(recordings.size()) +
              (recordings.empty() ? "" : ", " + sizeText(recorded)));
  output.set("recordings", std::uint64_t{recordings.size()});
  output.set("used", recorded);
  showStorage(storage, recorded, output);
}

const RegisteredCommand kInfoCommand(
    {.place = 2,
     .name = "info",
     .description = "Show battery level, firmware version, recordings and storage",
     .prepare = [](const Arguments&) { return showInfo; },
     .isQuestion = true});

}  // namespace
}  // namespace kwtsdk::tool
