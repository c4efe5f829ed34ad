#include "session/download.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

#include "session/assembly.h"
#include "session/confirmation.h"
#include "session/existing_file.h"
#include "session/file_name.h"
#include "session/part_file.h"
#include "session/store.h"
#include "session/transfer.h"

namespace kwtsdk::session::detail {
namespace {

namespace fs = std::filesystem;
using Stage = ProgressReport::Stage;

/// What path's own "/" does, which in libstdc++ 12 may crash where there is no memory for it.
fs::path inside(const fs::path& folder, const std::string& name) {
  const std::string& begin = folder.native();
  return begin.empty() || begin.ends_with('/') ? begin + name : begin + '/' + name;
}

Saved savedAs(const RecordingInfo& recording, const fs::path& file) {
  Saved saved;
  saved.recording = recording;
  saved.file = file;
  return saved;
}

Result<Saved> fetch(Conversation& recorder, const RecordingInfo& recording, const fs::path& file) {
  const auto part = PartFile::open(file, recording);
  if (!part) return part.error();
  Assembly assembly(*part, recording.bytes);
  if (auto failure = assembly.resume()) return *failure;
  Transfer transfer(recorder, recording, assembly);
  if (const auto result = transfer.run(); !result) return result.error();
  recorder.operation().report(Stage::verifying, recording.bytes, recording.bytes);
  if (auto failure = (*part)->save()) return *failure;
  Saved saved = savedAs(recording, file);
  saved.resumedAt = transfer.beganAt();
  saved.checked = assembly.isChecked();
  return saved;
}

/// A file that an earlier attempt has finished, or that is something else and stays as it is.
Result<Saved> confirm(Conversation& recorder, const RecordingInfo& recording, const fs::path& file) {
  recorder.operation().report(Stage::verifying, 0, recording.bytes);
  const auto existing = ExistingFile::open(file, recording.bytes);
  if (!existing) return existing.error();
  Confirmation confirmation(file, *existing, recording.bytes);
  Transfer transfer(recorder, recording, confirmation);
  if (const auto result = transfer.run(); !result) return result.error();
  PartFile::removeLeftHeader(file);
  Saved saved = savedAs(recording, file);
  saved.resumedAt = recording.bytes;
  saved.checked = true;
  return saved;
}

Result<Saved> save(Conversation& recorder, const RecordingInfo& recording, const fs::path& file) {
  const Duration began = recorder.now();
  auto result =
      ExistingFile::isThere(file) ? confirm(recorder, recording, file) : fetch(recorder, recording, file);
  if (!result) return result;
  Saved saved = *result;
  saved.took = recorder.now() - began;
  recorder.publish(event::RecordingSaved{recording, file});
  return saved;
}

/// Over another link another recording may be the first.
MaybeFailure noticeAndDelete(Conversation& recorder, const RecordingInfo& recording, std::uint64_t link) {
  constexpr Duration noticeTime = std::chrono::seconds(2);  // not every recorder answers it
  const auto result = recorder.persist([&]() -> Result<Done> {
    if (recorder.linkNumber() != link) {
      if (auto failure = askStillFirst(recorder, recording)) return *failure;
    }
    recorder.operation().report(Stage::deleting, recording.bytes, recording.bytes);
    if (auto failure = recorder.pause()) return *failure;
    const auto noticed = recorder.exchangeLeniently(noticeRequest(), noticeTime);
    if (!noticed && recorder.isLinkLost()) return noticed.error();
    if (auto failure = askDeletion(recorder, recording)) return *failure;
    return Done{};
  });
  return result ? std::nullopt : MaybeFailure(result.error());
}

/// The recording is on the disk by now: what becomes of the recorder's copy is no failure, unless the
/// operation has to end.
Result<Saved> deleteSaved(Conversation& recorder, Saved saved, std::uint64_t link) {
  const auto failure = noticeAndDelete(recorder, saved.recording, link);
  saved.deleted = failure ? failure->effect() : Effect::done;
  saved.notDeleted = failure;
  if (failure && recorder.ended()) return {*failure, std::move(saved)};
  return saved;
}

Result<Saved> saveAndDelete(Conversation& recorder, const RecordingInfo& recording, const fs::path& file,
                            bool keep) {
  auto saved = save(recorder, recording, file);
  if (!saved || keep) return saved;
  return deleteSaved(recorder, *saved, recorder.linkNumber());
}

/// All recordings into one folder.
class Harvesting {
 public:
  Harvesting(Conversation& recorder, fs::path folder, const DownloadOptions& options)
      : recorder_(recorder), folder_(std::move(folder)), options_(options) {}

  Result<Harvest> run() {
    recorder_.operation().report(Stage::asking);
    const auto all = recorder_.persist([this] { return askRecordings(recorder_); });
    if (!all) return all.error();
    harvest_.left = *all;
    items_ = static_cast<std::uint32_t>(all->size());
    while (!harvest_.left.empty()) {
      if (auto failure = saveNext()) return ended(*failure);
      if (options_.keep()) break;
      if (harvest_.left.empty()) {
        if (auto failure = lookForNewer()) return ended(*failure);
      }
    }
    return harvest_;
  }

 private:
  Result<Harvest> ended(const Failure& failure) const {
    if (harvest_.saved.empty()) return failure;
    return {failure, harvest_};
  }

  MaybeFailure saveNext() {
    const RecordingInfo recording = harvest_.left.front();
    const auto number = static_cast<std::uint32_t>(harvest_.saved.size() + 1);
    recorder_.operation().reportItem(number, std::max(items_, number));
    const auto first = recorder_.persist([&] { return askFirst(recorder_, recording.id); });
    if (!first) return first.error();
    const auto saved =
        saveAndDelete(recorder_, *first, inside(folder_, fileName(options_.name(), *first)), options_.keep());
    if (const Saved* const achieved = saved.achieved()) {
      harvest_.saved.push_back(*achieved);
      harvest_.left.erase(harvest_.left.begin());
    }
    if (!saved) return saved.error();
    if (options_.keep() || saved->deleted == Effect::done) return std::nullopt;
    return mayGoOn(*saved);
  }

  /// The recorder gives out nothing but its first recording. One whose deletion nobody knows of may be gone.
  MaybeFailure mayGoOn(const Saved& saved) {
    if (saved.deleted == Effect::none) return saved.notDeleted;
    const auto first = recorder_.persist([this] { return askFirst(recorder_, std::nullopt); });
    if (!first && first.error() != Errc::storeEmpty) return first.error();
    if (!first || !isSame(*first, saved.recording)) return std::nullopt;
    auto failure = noticeAndDelete(recorder_, saved.recording, recorder_.linkNumber());
    harvest_.saved.back().deleted = failure ? failure->effect() : Effect::done;
    harvest_.saved.back().notDeleted = failure;
    return failure;
  }

  /// What was recorded meanwhile.
  MaybeFailure lookForNewer() {
    const auto more = recorder_.persist([this] { return askRecordings(recorder_); });
    if (!more) return more.error();
    const auto isBack = [&](const RecordingInfo& listed) {
      return std::ranges::any_of(harvest_.saved, [&](const Saved& saved) {
        return saved.deleted == Effect::done && isSame(saved.recording, listed);
      });
    };
    if (std::ranges::any_of(*more, isBack)) {
      return Failure(Errc::refused, "the recorder still lists what it said that it had deleted");
    }
    harvest_.left = *more;
    items_ += static_cast<std::uint32_t>(more->size());
    return std::nullopt;
  }

  Conversation& recorder_;
  const fs::path folder_;
  const DownloadOptions& options_;
  Harvest harvest_;
  std::uint32_t items_ = 0;
};

}  // namespace

Result<Saved> download(Conversation& recorder, const fs::path& file, const DownloadOptions& options,
                       std::optional<std::uint32_t> expected) {
  recorder.operation().report(Stage::asking);
  const auto first = recorder.persist([&] { return askFirst(recorder, expected); });
  if (!first) return first.error();
  return saveAndDelete(recorder, *first, file, options.keep());
}

Result<Harvest> downloadAll(Conversation& recorder, const fs::path& folder, const DownloadOptions& options) {
  if (auto failure = checkNamePattern(options.name())) return *failure;
  return Harvesting(recorder, folder, options).run();
}

}  // namespace kwtsdk::session::detail
