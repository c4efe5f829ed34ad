#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string>

#include <kwtsdk/session/firmware_image.h>

#include "tools/command_line.h"
#include "tools/question.h"
#include "tools/words.h"

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
  if (failure == Errc::refused && failure.effect() == session::Effect::unknown)
    return {ToolError::notConfirmed, "The recorder accepted the image, and still runs its old firmware.",
            "Switch the recorder off and on, look with `kwt info`, and run the same command again."};
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
  if (failure.cause()) {
    Failure known = refused(*failure.cause());
    if (failure.worthRetrying() && known.status() == ExitStatus::failed)
      known.setStatus(ExitStatus::tryAgain);
    return known;
  }
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

struct UpdateRequest {
  std::string image;
  bool onlyChecks, agreed;
};

struct Found {
  session::FirmwareImage image;
  std::string version;  // that the recorder runs
  std::uint64_t battery;
};

/// A version's numbers, as many as the recorder tells at most; leading zeros it leaves out.
std::array<long, 4> numbersOf(const std::string& version) {
  std::array<long, 4> numbers{};
  const char* rest = version.c_str();
  while (*rest != '\0') {
    std::rotate(numbers.begin(), numbers.begin() + 1, numbers.end());
    char* end = nullptr;
    numbers.back() = std::strtol(rest, &end, 10);
    if (end == rest) break;
    rest = *end == '.' ? end + 1 : end;
  }
  return numbers;
}

bool isOlder(const Found& found) {
  return !found.version.empty() && numbersOf(found.image.version) < numbersOf(found.version);
}

/// What speaks against the update; "" when nothing does.
std::string objectionTo(const Found& found) {
  constexpr std::uint64_t low = 20;  // percent
  std::string objection;
  if (isOlder(found)) {
    objection = "The image is older (" + found.image.version + ") than the recorder's firmware (" +
                found.version + ").";
  }
  if (found.battery < low) {
    if (!objection.empty()) objection.append(" ");
    objection.append("The recorder's battery is low (").append(batteryText(found.battery)).append(").");
  }
  return objection;
}

Found look(const Environment& environment, const UpdateRequest& request, session::Session& recorder,
           const session::Limits& limits, Output& output) {
  const auto image = session::inspectImage(request.image);
  if (!image) throw cannotInstall(image.error(), request.image);
  if (image->looksLikeText) {
    throw cannotInstall(
        {Errc::imageRefused, "inspectImage: Cannot install: it is a text file, not a firmware image."},
        request.image);
  }
  output.set("bytes", image->bytes);
  output.set("versionImage", image->version);
  TerminalLine line(*environment.scheduler);
  line.show("Asking the recorder...");
  const auto version = recorder.firmware(limits).wait();
  const auto battery = version ? recorder.battery(limits).wait() : session::Result<std::uint64_t>(0);
  line.clear();
  if (!version) throw updateFailure(version.error(), request.image, {});
  output.set("versionBefore", *version);
  if (!battery) throw updateFailure(battery.error(), request.image, {});
  output.set("battery", *battery);
  return {*image, *version, *battery};
}

void reportCheck(const UpdateRequest& request, const Found& found, Output& output) {
  const std::string objection = objectionTo(found);
  output.set("older", isOlder(found));
  output.line(request.image + " (" + sizeText(found.image.bytes) +
              ") looks like a firmware image: " + found.version + " -> " + found.image.version + ".");
  if (!objection.empty()) output.line(objection);
  output.line("Nothing was sent; the battery is at " + batteryText(found.battery) + ".");
}

void install(const Environment& environment, const UpdateRequest& request, session::Session& recorder,
             const session::Limits& limits, Output& output) {
  const auto update = recorder.update(request.image, limits);
  const auto result = watched(environment, update);
  if (!result) throw updateFailure(result.error(), request.image, update.progress());
  const double seconds = std::chrono::duration<double>(result->took).count();
  output.set("seconds", seconds);
  output.set("versionAfter", result->after);
  output.line(
      resultText(request.image + " (" + bytesText(result->bytes) + " in " + secondsText(seconds, 1) + ")",
                 result->before, result->after));
}

void update(const Environment& environment, const UpdateRequest& request, Output& output) {
  constexpr unsigned connections = 2;
  output.set("image", request.image);
  const auto recorder = openRecorder(environment);
  const auto limits = session::Limits(environment.stop).silence(kAnswerTime).reconnects(connections);
  const auto asking = session::Limits(limits).timeout(std::chrono::hours(1));  // silence ends what hangs
  const Found found = look(environment, request, *recorder, asking, output);
  if (request.onlyChecks) return reportCheck(request, found, output);
  output.line("Firmware " + found.version + " -> " + found.image.version + ", battery " +
              batteryText(found.battery));
  const std::string objection = objectionTo(found);
  if (!objection.empty() && !request.agreed) {
    askForYes(environment, objection, "Install it all the same?",
              "Nothing was sent. If it is meant, run the command again with --yes.");
  }
  install(environment, request, *recorder, limits, output);
}

Action prepareUpdate(const Arguments& arguments) {
  const UpdateRequest request{arguments.text("image"), arguments.has("--check"), arguments.has("-y")};
  return [request](const Environment& environment, Output& output) { update(environment, request, output); };
}

const RegisteredCommand kUpdateCommand(
    {.place = 7,
     .name = "update",
     .description =
         "Install a firmware image; until all of it has arrived the recorder keeps its old firmware",
     .parameters = {{.name = "image", .valueName = "IMAGE", .description = "The image", .isRequired = true},
                    {"--check", "", "Look at image, versions and battery, and change nothing",
                     Parameter::Kind::flag},
                    {"-y,--yes", "", "Also an older version, and on a low battery; asks nothing",
                     Parameter::Kind::flag}},
     .prepare = prepareUpdate});

}  // namespace
}  // namespace kwtsdk::tool
