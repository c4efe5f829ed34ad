#include <chrono>

#include "tools/commands.h"
#include "tools/image_file.h"
#include "tools/recorder_queries.h"
#include "tools/text.h"
#include "tools/update_failure.h"

namespace kwtsdk::tool {
namespace {

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

}  // namespace

void runUpdate(const Host& host, const std::string& image, Output& output) {
  const std::uint64_t size = imageSize(image);
  output.set("image", image);
  output.set("bytes", size);
  Session session(host);
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

}  // namespace kwtsdk::tool
