#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>

#include <kwtsdk/files.h>

#include "tools/command_line.h"
#include "tools/download.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::tool {
namespace {

/// With the creation time, since another recorder's recording may have the same id: continuing that one's
/// file would make one useless file of two recordings, and the recorder would delete its copy.
std::string defaultName(const FirstRecording& recording) {
  const auto created = recording.header.creatTime();
  return "recording-" + std::to_string(recording.id) +
         (created ? creationTimeText(*created, "-%Y%m%d-%H%M%S") : std::string()) + ".opus";
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

void openFile(std::optional<OutputFile>& file, const std::string& name, const Environment& environment) {
  refuseStore(name, environment.simulatedFolder);
  file.emplace(name);
}

Failure stopped(ToolError code, const std::string& what, const OutputFile& file, std::uint64_t total) {
  if (file.size() == 0) {
    return {code, what + " before anything arrived.",
            "The recorder still has the recording; run the command again."};
  }
  return {code, what + " after " + ofBytesText(std::min(file.size(), total), total) + ".",
          file.path() + " keeps what arrived; run the same command again to continue."};
}

Failure refused(const Error& error, const OutputFile& file, std::uint64_t total) {
  if (error.domain() != kLibraryDomain) return explained(error);
  // Its own queries before the packets could not be sent, or stayed without an answer.
  constexpr std::array<std::int64_t, 3> unanswered{1001, 1005, 1006};
  if (std::ranges::find(unanswered, error.code()) != unanswered.end())
    return stopped(ToolError::connectionLost, "The recorder could not be reached any more", file, total);
  if (error.code() != kLongerThanRecording) return explained(error);
  return {error,
          file.path() + " is longer (" + bytesText(file.size()) + ") than the recorder's first recording (" +
              bytesText(total) + ")",
          "A finished download is up to " + bytesText(wire::kDownloadDataSize - 1) +
              " longer than its recording. If this is one, delete the "
              "recorder's copy with `kwt rm`; if not, name another file with -o."};
}

Failure unwritable(const std::string& reason, const OutputFile& file) {
  return {ToolError::fileUnusable, "Cannot write " + file.path() + ": " + reason + ".",
          "The recorder still has the recording. Free space on the disk or raise the limit, then run the "
          "same command again to continue."};
}

Failure incomplete(const OutputFile& file, std::uint64_t total) {
  return {ToolError::incomplete,
          "Packets were lost: " + file.path() + " has " + ofBytesText(file.size(), total) +
              ", with parts missing.",
          "The recorder still has the recording. Remove the file, bring the recorder closer and run the same "
          "command again."};
}

Failure failureOf(const DownloadOutcome& outcome, const OutputFile& file, std::uint64_t total) {
  switch (outcome.end) {
    case DownloadEnd::incomplete:
      return incomplete(file, total);
    case DownloadEnd::refused:
      return refused(*outcome.error, file, total);
    case DownloadEnd::stalled:
      return stopped(ToolError::stalled, "The recorder stopped sending", file, total);
    case DownloadEnd::linkLost:
      return stopped(ToolError::connectionLost, "Connection lost", file, total);
    case DownloadEnd::unwritable:
      return unwritable(outcome.reason, file);
    default:
      return stopped(ToolError::interrupted, "Interrupted", file, total);
  }
}

void reportSaved(const OutputFile& file, std::uint64_t begin, std::uint64_t total, double seconds,
                 Output& output) {
  output.line("Saved " + file.path() + " (" + bytesText(total) + " in " + secondsText(seconds, 1) +
              (begin > 0 ? ", continued at byte " + std::to_string(begin) : "") + ").");
  output.set("bytes", total);
  output.set("continuedAt", begin);
  output.set("seconds", seconds);
}

void reportDeletion(const std::optional<Deletion>& deletion, const OutputFile& file, std::int64_t id,
                    Output& output) {
  const bool deleted = deletion && !deletion->error;
  output.set("deleted", deleted);
  if (deleted) return output.line("The recorder has deleted its copy.");
  if (deletion && deletion->error->domain() == kLibraryDomain) {
    throw Failure(*deletion->error, "The recording was saved, but the recorder kept its copy",
                  file.path() + " is safe. Delete the recorder's copy with `kwt rm`.");
  }
  throw Failure(ToolError::notDeleted,
                "The recording was saved, but the recorder did not confirm that it deleted its copy.",
                file.path() + " is safe. Look with `kwt list` whether the recorder still has recording " +
                    std::to_string(id) + " before you delete that with `kwt rm`.");
}

void pull(const Environment& environment, const std::string& name, Output& output) {
  std::optional<OutputFile> file;
  if (!name.empty()) openFile(file, name, environment);
  Session session(environment);
  const FirstRecording first = firstRecording(session);
  if (!file) openFile(file, defaultName(first), environment);
  output.set("id", first.id);
  output.set("file", file->path());

  const std::uint64_t begin = file->size(), total = first.header.filesize();
  const Duration start = session.scheduler().now();
  pause(session);
  Download download(session, file->path());
  const DownloadOutcome outcome = download.run();
  if (outcome.end != DownloadEnd::complete) throw failureOf(outcome, *file, total);

  const std::chrono::duration<double> elapsed = session.scheduler().now() - start;
  reportSaved(*file, begin, total, elapsed.count(), output);
  reportDeletion(download.waitForDeletion(), *file, first.id, output);
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
     .parameters =
         {{"-o,--output", "FILE",
           "File to write, continued where it ends if it exists (default: recording-ID-TIME.opus)"}},
     .prepare = preparePull});

}  // namespace
}  // namespace kwtsdk::tool
