#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>

#include <kwtsdk/files.h>

#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

using session::Effect;
using session::Errc;
using session::Saved;

/// With the creation time, since another recorder's recording may have the same id.
std::string defaultName(const session::RecordingInfo& recording) {
  return "recording-" + std::to_string(recording.id) +
         (recording.created ? creationTimeText(*recording.created, "-%Y%m%d-%H%M%S") : "") + ".opus";
}

/// There it would be taken for one of the recorder's recordings, and be deleted with them.
void refuseStore(const std::string& file, const std::string& store) {
  const auto folder = std::filesystem::absolute(file).parent_path();
  std::error_code ignored;
  if (!std::filesystem::equivalent(folder, store, ignored)) return;
  throw Failure(ToolError::fileUnusable,
                "Cannot write " + file + ": it would be in the simulated recorder's folder.",
                "Name a file elsewhere with -o.");
}

/// Of what is kept beside the file until it is whole.
std::string partOf(const std::string& file) { return file + ".part"; }

void checkTarget(const std::string& file, const Environment& environment) {
  refuseStore(file, environment.simulatedFolder);
  checkOutput(file);
  checkOutput(partOf(file));
}

Failure stopped(ToolError code, const std::string& what, const std::string& part, std::uint64_t total) {
  const auto arrived = static_cast<std::uint64_t>(fileSize(part));
  if (arrived == 0) {
    return {code, what + " before anything arrived.",
            "The recorder still has the recording; run the command again."};
  }
  return {code, what + " after " + ofBytesText(std::min(arrived, total), total) + ".",
          part + " keeps what arrived; run the same command again to continue."};
}

Failure cannotSave(const session::Failure& failure, const std::string& file) {
  return {ToolError::fileUnusable, sentenceOf(failure),
          fileIsExist(file)
              ? "Name another file, or none, with -o."
              : "The recorder still has the recording. If the disk is full, free space or raise the limit; "
                "then run the same command again to continue."};
}

Failure other(const session::Failure& failure, const std::string& part) {
  Failure known = explained(failure);
  if (fileSize(part) > 0) known.addHint(part + " keeps what has arrived.");
  return known;
}

/// `total` 0: the recorder has not told it.
Failure pullFailure(const session::Failure& failure, const std::string& file, std::uint64_t total) {
  if (failure == Errc::fileUnusable) return cannotSave(failure, file);
  if (total == 0) return other(failure, partOf(file));
  switch (failure.code()) {
    case Errc::cancelled:
      return stopped(ToolError::interrupted, "Interrupted", partOf(file), total);
    case Errc::linkLost:
      return stopped(ToolError::connectionLost, "Connection lost", partOf(file), total);
    case Errc::stalled:
      return stopped(ToolError::stalled, "The recorder stopped sending", partOf(file), total);
    case Errc::incomplete:
    case Errc::damaged:
      return {ToolError::incomplete, "Packets were lost or damaged, and again when they were asked for anew.",
              "The recorder still has the recording. Bring it closer and run the same command again."};
    default:
      return other(failure, partOf(file));
  }
}

void reportSaved(const Saved& saved, Output& output) {
  const double seconds = std::chrono::duration<double>(saved.took).count();
  output.line("Saved " + saved.file.string() + " (" + bytesText(saved.recording.bytes) + " in " +
              secondsText(seconds, 1) +
              (saved.resumedAt > 0 ? ", continued at byte " + std::to_string(saved.resumedAt) : "") + ").");
  if (!saved.checked) output.line("Its content could not be checked; it arrived twice, and alike.");
  output.set("id", std::uint64_t{saved.recording.id});
  output.set("bytes", saved.recording.bytes);
  output.set("continuedAt", saved.resumedAt);
  output.set("seconds", seconds);
}

void reportDeletion(const Saved& saved, Output& output) {
  const bool deleted = saved.deleted == Effect::done;
  output.set("deleted", deleted);
  if (deleted) return output.line("The recorder has deleted its copy.");
  const std::string safe = saved.file.string() + " is safe. ";
  if (saved.deleted == Effect::unknown) {
    throw Failure(ToolError::notDeleted,
                  "The recording was saved, but the recorder did not confirm that it deleted its copy.",
                  safe + "Look with `kwt list` whether the recorder still has recording " +
                      std::to_string(saved.recording.id) + "; if so, the same command again deletes it.");
  }
  const std::string text = "The recording was saved, but the recorder kept its copy",
                    hint = safe + "Run the same command again to have the copy deleted.";
  const MaybeError cause = saved.notDeleted ? saved.notDeleted->cause() : std::nullopt;
  if (cause && cause->domain() == kLibraryDomain) throw Failure(*cause, text, hint);
  throw Failure(ToolError::notDeleted, text + ".", hint);
}

void pull(const Environment& environment, std::string file, Output& output) {
  constexpr unsigned connections = 20;
  if (!file.empty()) checkTarget(file, environment);
  const auto recorder = openRecorder(environment);
  std::optional<std::uint32_t> expected;
  if (file.empty()) {
    const auto first = firstRecording(environment, *recorder);
    file = defaultName(first);
    expected = first.id;
    checkTarget(file, environment);
  }
  output.set("file", file);
  const auto limits = session::Limits(environment.stop).silence(kAnswerTime).reconnects(connections);
  const auto download = recorder->download(file, {}, limits, expected);
  const auto result = watched(environment, download);
  const Saved* const saved = result.achieved();  // also when it was interrupted after that
  if (saved == nullptr) throw pullFailure(result.error(), file, download.progress().total);
  reportSaved(*saved, output);
  reportDeletion(*saved, output);
}

Action preparePull(const Arguments& arguments) {
  require(!arguments.has("-o") || !arguments.text("-o").empty(), "-o needs the name of a file");
  return [file = arguments.text("-o")](const Environment& environment, Output& output) {
    pull(environment, file, output);
  };
}

const RegisteredCommand kPullCommand(
    {.place = 4,
     .name = "pull",
     .description = "Download the first recording; the recorder then deletes it",
     .parameters = {{"-o,--output", "FILE",
                     "File to write; FILE.part until it is whole (default: recording-ID-TIME.opus)"}},
     .prepare = preparePull});

}  // namespace
}  // namespace kwtsdk::tool
