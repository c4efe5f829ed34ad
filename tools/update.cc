#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <system_error>

#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

using session::Errc;

struct UpdateExplanation {
  std::int64_t code;
  const char* text;
  const char* hint;
};

constexpr const char* kCheckIt = "Check that the recorder is switched on and in range.";
constexpr const char* kCheckImage = "Check that the image is whole and one for this recorder.";

constexpr std::array<UpdateExplanation, 5> kUpdateExplanations{{
    {1008, "The recorder refused the preparation", "End what it is doing, and charge it."},
    {1009, "The recorder refused the configuration", kCheckImage},
    {1010, "The recorder refused the partition selection", "Switch the recorder off and on."},
    {1012, "The check of a segment failed: part of the image arrived damaged or not at all",
     "Bring the recorder closer."},
    {1013, "The recorder refused the whole image at the end", kCheckImage},
}};

constexpr const char* kOldFirmware = "The recorder still runs its old firmware.";

std::string oldFirmware(const std::string& todo) {
  return todo +
         " The recorder still runs its old firmware; run the same command again, which starts from the "
         "beginning.";
}

Failure refused(const Error& error) {
  const auto found = std::ranges::find(kUpdateExplanations, error.code(), &UpdateExplanation::code);
  if (error.domain() == kLibraryDomain && found != kUpdateExplanations.end())
    return {error, found->text, oldFirmware(found->hint)};
  Failure failure = explained(error);
  failure.addHint(kOldFirmware);
  return failure;
}

/// The recorder has accepted the image, and what it runs now is not known.
Failure notConfirmed(session::Effect installed) {
  const bool isTold = installed == session::Effect::done;
  return {ToolError::notConfirmed,
          std::string("The recorder accepted the image, but ") +
              (isTold ? "has not told its version since." : "may not have been told to install it."),
          "It may be restarting: look with `kwt info` which firmware it runs. If that is the old one, run "
          "the same command again."};
}

Failure cannotInstall(const session::Failure& failure, const std::string& image) {
  const std::string sentence = sentenceOf(failure),
                    reason = sentence.substr(std::min(sentence.find(": "), sentence.size()));
  return {
      ToolError::fileUnusable, "Cannot install " + image + reason,
      std::string(kOldFirmware) + " Name the file of a firmware image, and check that it was copied whole."};
}

/// Why the update did not end well; `progress` of an image that was being sent.
Failure updateFailure(const session::Failure& failure, const std::string& image,
                      const session::ProgressReport& progress) {
  if (failure.effect() != session::Effect::none) return notConfirmed(failure.effect());
  const std::string place = progress.total > 0 ? "after " + ofBytesText(progress.done, progress.total)
                                               : "before any of the image was sent";
  switch (failure.code()) {
    case Errc::stalled:
      return {ToolError::stalled, "The recorder stopped answering " + place + ".", oldFirmware(kCheckIt)};
    case Errc::cancelled:
      return {ToolError::interrupted, "Interrupted " + place + ".", oldFirmware("Nothing was installed.")};
    case Errc::linkLost:
      return {ToolError::connectionLost, "Connection lost " + place + ".",
              oldFirmware("Bring the recorder into range.")};
    default:
      break;
  }
  if (failure.cause()) return refused(*failure.cause());
  if (failure == Errc::fileUnusable || failure == Errc::imageRefused) return cannotInstall(failure, image);
  return explained(failure);
}

/// Of a version that stays nobody can tell whether it was installed anew: the last command has no answer.
std::string resultText(const std::string& sent, const std::string& before, const std::string& after) {
  if (after == before) {
    return "Sent " + sent + ": the recorder accepted it and has firmware " + after + ", as before.";
  }
  return "Installed " + sent + ": firmware " + before + " -> " + after + ".";
}

void update(const Environment& environment, const std::string& image, Output& output) {
  constexpr unsigned connections = 2;
  output.set("image", image);
  std::error_code problem;
  const std::uint64_t size = std::filesystem::file_size(image, problem);
  if (!problem) output.set("bytes", size);
  const auto recorder = openRecorder(environment);
  const auto update =
      recorder->update(image, session::Limits(environment.stop).silence(kAnswerTime).reconnects(connections));
  const auto result = watched(environment, update);
  const std::string before = result ? result->before : recorder->snapshot().firmware;
  if (!before.empty()) output.set("versionBefore", before);
  if (!result) throw updateFailure(result.error(), image, update.progress());
  const double seconds = std::chrono::duration<double>(result->took).count();
  output.set("seconds", seconds);
  output.set("versionAfter", result->after);
  output.line(resultText(image + " (" + bytesText(size) + " in " + secondsText(seconds, 1) + ")", before,
                         result->after));
}

Action prepareUpdate(const Arguments& arguments) {
  return [image = arguments.text("image")](const Environment& environment, Output& output) {
    update(environment, image, output);
  };
}

const RegisteredCommand kUpdateCommand(
    {.place = 7,
     .name = "update",
     .description =
         "Install a firmware image; until all of it has arrived the recorder keeps its old firmware",
     .parameters = {{.name = "image", .valueName = "IMAGE", .description = "The image", .isRequired = true}},
     .prepare = prepareUpdate});

}  // namespace
}  // namespace kwtsdk::tool
