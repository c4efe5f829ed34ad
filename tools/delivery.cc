#include "tools/delivery.h"

#include <chrono>
#include <memory>
#include <system_error>

#include "tools/conversion_folder.h"
#include "tools/pull_failure.h"

namespace kwtsdk::tool {

namespace fs = std::filesystem;
using session::Effect;
using session::RecordingInfo;
using session::Saved;

namespace {

bool isThere(const fs::path& file) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(file, ignored));
}

Failure notYetDeleted(const session::Failure& failure, const fs::path& file) {
  Failure known = explained(failure);
  known.addHint(file.string() + " is safe; the same command has the recorder's copy deleted.");
  return known;
}

double secondsOf(const Saved& saved) { return std::chrono::duration<double>(saved.took).count(); }

}  // namespace

session::Limits limitsOfPull(const Environment& environment) {
  constexpr unsigned connections = 20;
  return session::Limits(environment.stop).silence(kAnswerTime).reconnects(connections);
}

session::Result<Saved> Delivery::download(const fs::path& file, bool keeps,
                                          std::optional<std::uint32_t> expected, Place place,
                                          std::uint64_t& total) const {
  auto operation =
      recorder.download(file, session::DownloadOptions().keep(keeps), limitsOfPull(environment), expected);
  const auto line = std::make_shared<ProgressLine>(*environment.scheduler);
  const auto placed = [place](session::ProgressReport report) {
    report.item = place.item;
    report.items = place.items;
    return report;
  };
  operation.onProgress([line, placed](const session::ProgressReport& report) { line->show(placed(report)); });
  auto result = operation.wait();
  const session::ProgressReport last = operation.progress();
  line->end(placed(last));  // a report may still be on its way
  total = last.total;
  return result;
}

Saved Delivery::fetch(const fs::path& file, bool keeps, std::optional<std::uint32_t> expected,
                      Place place) const {
  std::uint64_t total = 0;
  const auto result = download(file, keeps, expected, place, total);
  if (const Saved* const saved = result.achieved()) return *saved;  // also when it was interrupted after that
  throw pullFailure(result.error(), file, total);
}

Delivered Delivery::run(const fs::path& target, const std::optional<RecordingInfo>& expected,
                        Place place) const {
  if (form != Form::opus) return runConverted(target, expected, place);
  const Saved saved = fetch(target, keep, expected ? std::optional(expected->id) : std::nullopt, place);
  return {saved, target, saved.resumedAt == saved.recording.bytes};
}

Delivered Delivery::runConverted(const fs::path& target, const std::optional<RecordingInfo>& expected,
                                 Place place) const {
  const fs::path beside = fs::path(target).replace_extension(".opus");
  if (keep && expected && isThere(target) && !isThere(beside)) {
    Saved saved;
    saved.recording = *expected;
    saved.resumedAt = expected->bytes;
    saved.checked = true;
    return {saved, target, true};
  }
  const ConversionFolder folder(target.parent_path());
  // One that a person has pulled before is the person's, and stays.
  bool isOurs = !isThere(beside);
  fs::path source = isOurs ? ConversionFolder::sourceOf(target) : beside;
  const Saved saved = fetch(source, true, expected ? std::optional(expected->id) : std::nullopt, place);
  Delivered delivered{saved, target, isThere(target)};
  delivered.notConverted = folder.convert(environment, source, target, form);
  if (!delivered.notConverted.empty()) {
    if (isOurs) folder.giveOut(source, beside);
    delivered.file = source = beside;
    isOurs = false;
  }
  if (!keep) deleteCopy(delivered, source);
  std::error_code ignored;
  if (isOurs && (keep || delivered.saved.deleted == Effect::done)) fs::remove(source, ignored);
  return delivered;
}

/// By the session's way for a file that is there: the recorder confirms it first.
void Delivery::deleteCopy(Delivered& delivered, const fs::path& source) const {
  std::uint64_t total = 0;
  const auto result = download(source, false, delivered.saved.recording.id, {}, total);
  const Saved* const saved = result.achieved();
  if (saved == nullptr) {
    throw notYetDeleted(result.error(), delivered.file);
  }
  delivered.saved.deleted = saved->deleted;
  delivered.saved.notDeleted = saved->notDeleted;
}

void Delivery::sweep(const fs::path& folder) const {
  if (ConversionFolder::isIn(folder)) ConversionFolder(folder).sweep(environment, form);
}

std::string textOf(const Delivered& delivered) {
  const Saved& saved = delivered.saved;
  const std::string file = delivered.file.string();
  std::string text = delivered.wasThere ? file + " was there already"
                                        : "Saved " + file + " (" + bytesText(saved.recording.bytes) + " in " +
                                              secondsText(secondsOf(saved), 1);
  if (!delivered.wasThere && saved.resumedAt > 0)
    text += ", continued at byte " + std::to_string(saved.resumedAt);
  text += delivered.wasThere ? "." : ").";
  if (!saved.checked) text += "\nIts content could not be checked; it arrived twice, and alike.";
  return text;
}

Record recordOf(const Delivered& delivered) {
  const Saved& saved = delivered.saved;
  Record record{{"id", std::uint64_t{saved.recording.id}},
                {"file", delivered.file.string()},
                {"bytes", saved.recording.bytes},
                {"continuedAt", saved.resumedAt},
                {"seconds", secondsOf(saved)},
                {"deleted", saved.deleted == Effect::done}};
  if (!delivered.notConverted.empty()) record["notConverted"] = delivered.notConverted;
  return record;
}

void checkConverted(const Delivered& delivered) {
  if (delivered.notConverted.empty()) return;
  throw Failure(ToolError::notConverted, "A recording could not be converted. " + delivered.notConverted,
                delivered.file.string() + " is the recording as it was on the recorder.");
}

Failure notDeletedFailure(const Delivered& delivered) {
  const Saved& saved = delivered.saved;
  const std::string safe = delivered.file.string() + " is safe. ";
  if (saved.deleted == Effect::unknown) {
    return {ToolError::notDeleted,
            "The recording was saved, but the recorder did not confirm that it deleted its copy.",
            safe + "Look with `kwt list` whether the recorder still has recording " +
                std::to_string(saved.recording.id) + "; if so, the same command again deletes it."};
  }
  const std::string text = "The recording was saved, but the recorder kept its copy",
                    hint = safe + "Run the same command again to have the copy deleted.";
  const MaybeError cause = saved.notDeleted ? saved.notDeleted->cause() : std::nullopt;
  if (cause && cause->domain() == kLibraryDomain) return {*cause, text, hint};
  return {ToolError::notDeleted, text + ".", hint};
}

}  // namespace kwtsdk::tool
