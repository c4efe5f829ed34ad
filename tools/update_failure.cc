#include "tools/update_failure.h"

#include <algorithm>
#include <array>

#include "tools/image_file.h"
#include "tools/image_tail.h"
#include "tools/recorder_queries.h"
#include "tools/text.h"

namespace kwtsdk::tool {
namespace {

constexpr std::int64_t kNoAnswerInTime = 999;

struct Explanation {
  std::int64_t code;
  const char* text;
  const char* hint;
};

constexpr const char* kCheckRecorder = "Check that the recorder is switched on and in range.";
constexpr const char* kCheckImage = "Check that the image is whole and one for this recorder.";

constexpr std::array<Explanation, 8> kExplanations{{
    {1001, "The recorder is not connected, or lacks what an update needs", kCheckRecorder},
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
            oldFirmware(kCheckRecorder)};
  }
  const auto found =
      std::ranges::find_if(kExplanations, [&](const auto& known) { return known.code == error.code(); });
  if (isLibrarys && found != kExplanations.end()) return {error, found->text, oldFirmware(found->hint)};
  return {error, std::string("The recorder reported an error at the ").append(nameOf(step)),
          oldFirmware(kCheckRecorder)};
}

}  // namespace

Failure updateFailure(const InstallationOutcome& outcome, const std::string& image, std::uint64_t size,
                      Session& session) {
  if (outcome.step == InstallationStep::accepted) return notConfirmed();
  const std::string place = placeOf(outcome, size);
  switch (outcome.end) {
    case InstallationEnd::unsendable:
      return unsendable(image, size, unsendableTail(size, session.recorder().MTU()));
    case InstallationEnd::stalled:
      return {ToolError::stalled, "The recorder stopped answering " + place + ".",
              oldFirmware(kCheckRecorder)};
    case InstallationEnd::interrupted:
      return {ToolError::interrupted, "Interrupted " + place + ".", oldFirmware("Nothing was installed.")};
    default:
      break;
  }
  if (isConnected(session) && outcome.error) return reported(*outcome.error, outcome.step);
  return {ToolError::connectionLost, "Connection lost " + place + ".",
          oldFirmware("Bring the recorder into range.")};
}

Failure notConfirmed() {
  return {ToolError::notConfirmed, "The recorder accepted the image, but has not told its version since.",
          "It may be restarting: look with `kwt info` which firmware it runs. If that is the old one, run "
          "the same command again."};
}

}  // namespace kwtsdk::tool
