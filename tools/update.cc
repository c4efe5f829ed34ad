#include <algorithm>
#include <array>
#include <chrono>

#include "tools/command_line.h"
#include "tools/firmware_image.h"
#include "tools/installation.h"

namespace kwtsdk::tool {
namespace {

constexpr std::int64_t kNoAnswerInTime = 999;

struct UpdateExplanation {
  std::int64_t code;
  const char* text;
  const char* hint;
};

constexpr const char* kCheckIt = "Check that the recorder is switched on and in range.";
constexpr const char* kCheckImage = "Check that the image is whole and one for this recorder.";

constexpr std::array<UpdateExplanation, 8> kUpdateExplanations{{
    {1001, "The recorder is not connected, or lacks what an update needs", kCheckIt},
    {1002, "Another command is under way", "Wait for its end."},
    {1008, "The recorder refused the preparation", "End what it is doing, and charge it."},
    {1009, "The recorder refused the configuration", kCheckImage},
    {1010, "The recorder refused the partition selection", "Switch the recorder off and on."},
    {1011, "The image could not be read", "Check the file's name and its permissions."},
    {1012, "The check of a segment failed: part of the image arrived damaged or not at all",
     "Bring the recorder closer."},
    {1013, "The recorder refused the whole image at the end", kCheckImage},
}};

const char* nameOf(InstallationStep step) {
  constexpr std::array<const char*, 8> names{
      "preparation", "partition selection", "resume verification", "start of the transfer", "configuration",
      "transfer",    "end (bye)",           "installation"};
  return names.at(static_cast<std::size_t>(step));
}

std::string placeOf(const InstallationOutcome& outcome, std::uint64_t size) {
  if (outcome.step == InstallationStep::transfer) return "after " + ofBytesText(outcome.confirmed, size);
  return std::string("at the ").append(nameOf(outcome.step));
}

std::string oldFirmware(const std::string& todo) {
  return todo +
         " The recorder still runs its old firmware; run the same command again, which starts from the "
         "beginning.";
}

Failure reported(const Error& error, InstallationStep step) {
  const bool isLibrarys = error.domain() == kLibraryDomain;
  if (isLibrarys && error.code() == kNoAnswerInTime) {
    return {error, std::string("The recorder did not answer the ").append(nameOf(step)) + " within 5 s",
            oldFirmware(kCheckIt)};
  }
  const auto found = std::ranges::find_if(kUpdateExplanations,
                                          [&](const auto& known) { return known.code == error.code(); });
  if (isLibrarys && found != kUpdateExplanations.end()) return {error, found->text, oldFirmware(found->hint)};
  return {error, std::string("The recorder reported an error at the ").append(nameOf(step)),
          oldFirmware(kCheckIt)};
}

/// The recorder has accepted the image, and what it runs now is not known.
Failure notConfirmed() {
  return {ToolError::notConfirmed, "The recorder accepted the image, but has not told its version since.",
          "It may be restarting: look with `kwt info` which firmware it runs. If that is the old one, run "
          "the same command again."};
}

/// Why the update with an image of that many bytes did not end well.
Failure updateFailure(const InstallationOutcome& outcome, const std::string& image, std::uint64_t size,
                      Session& session) {
  if (outcome.step == InstallationStep::accepted) return notConfirmed();
  const std::string place = placeOf(outcome, size);
  switch (outcome.end) {
    case InstallationEnd::unsendable:
      return unsendable(image, size, unsendableTail(size, session.recorder().MTU()));
    case InstallationEnd::stalled:
      return {ToolError::stalled, "The recorder stopped answering " + place + ".", oldFirmware(kCheckIt)};
    case InstallationEnd::interrupted:
      return {ToolError::interrupted, "Interrupted " + place + ".", oldFirmware("Nothing was installed.")};
    default:
      break;
  }
  if (isConnected(session) && outcome.error) return reported(*outcome.error, outcome.step);
  return {ToolError::connectionLost, "Connection lost " + place + ".",
          oldFirmware("Bring the recorder into range.")};
}

/// Returns how many seconds it took.
double install(Session& session, const std::string& image, std::uint64_t size) {
  const Duration start = session.scheduler().now();
  Installation installation(session, image, size);
  const InstallationOutcome outcome = installation.run();
  if (outcome.end != InstallationEnd::reported || outcome.error) {
    throw updateFailure(outcome, image, size, session);
  }
  return std::chrono::duration<double>(session.scheduler().now() - start).count();
}

/// Of a version that stays nobody can tell whether it was installed anew: the last command has no answer.
std::string resultText(const std::string& sent, const std::string& before, const std::string& after) {
  if (after == before) {
    return "Sent " + sent + ": the recorder accepted it and has firmware " + after + ", as before.";
  }
  return "Installed " + sent + ": firmware " + before + " -> " + after + ".";
}

void update(const Environment& environment, const std::string& image, Output& output) {
  const std::uint64_t size = imageSize(image);
  output.set("image", image);
  output.set("bytes", size);
  Session session(environment);
  batteryLevel(session);
  pause(session);
  const std::string before = firmwareVersion(session);
  output.set("versionBefore", before);
  pause(session);
  const double seconds = install(session, image, size);
  output.set("seconds", seconds);

  pause(session);
  const auto after = session.recorder().getFirmwareVersion();
  if (!after || after->empty()) throw notConfirmed();
  output.set("versionAfter", *after);
  output.line(
      resultText(image + " (" + bytesText(size) + " in " + secondsText(seconds, 1) + ")", before, *after));
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
