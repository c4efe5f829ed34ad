#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include "tools/delivery.h"

namespace kwtsdk::tool {

struct HarvestRequest {
  std::filesystem::path folder;
  Naming naming;
  bool keep = false;  // then only the first can be had
};

struct Harvested {
  std::vector<Delivered> delivered;
  std::vector<session::RecordingInfo> left;  // on the recorder, and not saved
  std::optional<Failure> failure;            // why
};

/// All recordings into a folder, and those that are made meanwhile. Does not throw once it has begun.
Harvested harvest(const Environment& environment, session::Session& recorder, const HarvestRequest& request,
                  const std::function<void(const Delivered&)>& onDelivered);

/// The folder that -o names, or the current one; it is made if only it is missing. Throws Failure.
std::filesystem::path harvestFolder(const Environment& environment, const std::string& named);

}  // namespace kwtsdk::tool
