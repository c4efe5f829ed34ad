#include "tools/harvest.h"

#include <algorithm>
#include <system_error>

#include <kwtsdk/files.h>

namespace kwtsdk::tool {

namespace fs = std::filesystem;
using session::Effect;
using session::RecordingInfo;

namespace {

bool isSame(const RecordingInfo& one, const RecordingInfo& other) {
  return one.id == other.id && one.bytes == other.bytes && one.created == other.created;
}

class Harvesting {
 public:
  Harvesting(const Environment& environment, session::Session& recorder, const HarvestRequest& request,
             const std::function<void(const Delivered&)>& onDelivered)
      : request_(request),
        onDelivered_(onDelivered),
        delivery_{environment, recorder, request.naming.form(), request.keep} {}

  Harvested run() {
    try {
      list();
      while (!result_.left.empty()) {
        deliverNext();
        if (request_.keep) break;
        if (result_.left.empty()) list();  // what was recorded meanwhile
      }
      delivery_.sweep(request_.folder);
    } catch (const Failure& failure) {
      result_.failure = failure;
    }
    return std::move(result_);
  }

 private:
  void list() {
    const auto limits = limitsOfPull(delivery_.environment);
    result_.left = valueOf(delivery_.recorder.recordings(limits).wait());
    const auto isBack = [&](const RecordingInfo& listed) {
      return std::ranges::any_of(result_.delivered, [&](const Delivered& one) {
        return one.saved.deleted == Effect::done && isSame(one.saved.recording, listed);
      });
    };
    if (std::ranges::none_of(result_.left, isBack)) return;
    throw Failure(ToolError::notDeleted, "The recorder still lists what it said that it had deleted.",
                  "What was saved is safe. Look at the recordings with `kwt list`.");
  }

  void deliverNext() {
    const RecordingInfo recording = result_.left.front();
    Delivered delivered = deliver(recording);
    result_.left.erase(result_.left.begin());
    const Effect deleted = delivered.saved.deleted;
    const bool isRepeated =
        !result_.delivered.empty() && isSame(result_.delivered.back().saved.recording, recording);
    if (isRepeated) {
      result_.delivered.back().saved.deleted = deleted;
    } else {
      onDelivered_(delivered);
      result_.delivered.push_back(delivered);
    }
    if (request_.keep || deleted == Effect::done) return;
    // Without an answer it may be gone; the recorder gives out none behind it if it is not.
    if (deleted == Effect::none || isRepeated) throw notDeletedFailure(delivered);
    list();
    const bool isGone = std::ranges::none_of(
        result_.left, [&](const RecordingInfo& listed) { return isSame(listed, recording); });
    if (isGone) result_.delivered.back().saved.deleted = Effect::done;
  }

  Delivered deliver(const RecordingInfo& recording) const {
    const fs::path target = request_.folder / request_.naming.nameOf(recording);
    const std::size_t done = result_.delivered.size(), all = done + result_.left.size();
    try {
      return delivery_.run(target, recording,
                           {static_cast<std::uint32_t>(done + 1), static_cast<std::uint32_t>(all)});
    } catch (const Failure& failure) {
      const bool isOther = failure.code() == static_cast<std::int64_t>(ToolError::fileUnusable) &&
                           fileIsExist(target.string());
      if (!isOther) throw;
      throw Failure(
          ToolError::fileUnusable, failure.what(),
          "Move it away, or have other names with --name, such as '{id}'; then run the command again.");
    }
  }

  const HarvestRequest& request_;
  const std::function<void(const Delivered&)>& onDelivered_;
  const Delivery delivery_;
  Harvested result_;
};

}  // namespace

Harvested harvest(const Environment& environment, session::Session& recorder, const HarvestRequest& request,
                  const std::function<void(const Delivered&)>& onDelivered) {
  return Harvesting(environment, recorder, request, onDelivered).run();
}

fs::path harvestFolder(const Environment& environment, const std::string& named) {
  fs::path folder = named.empty() ? "." : named;
  if (folder.filename().empty()) folder = folder.parent_path();  // "in/"
  std::error_code failure, ignored;
  fs::create_directory(folder, failure);
  if (!fs::is_directory(folder, ignored)) {
    throw Failure(ToolError::fileUnusable,
                  "Cannot write into " + named + ": " +
                      (fs::exists(folder, ignored) ? "it is no folder." : failure.message() + "."),
                  "Name a folder with -o.");
  }
  if (!environment.simulatedFolder.empty() && fs::equivalent(folder, environment.simulatedFolder, ignored)) {
    // There they would be taken for the recorder's recordings, and be deleted with them.
    throw Failure(ToolError::fileUnusable,
                  "Cannot write into " + folder.string() + ": it is the simulated recorder's folder.",
                  "Name another folder with -o.");
  }
  return named.empty() ? fs::path() : folder;
}

}  // namespace kwtsdk::tool
