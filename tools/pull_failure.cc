#include "tools/pull_failure.h"

#include <algorithm>

#include <kwtsdk/files.h>

#include "tools/output.h"

namespace kwtsdk::tool {
namespace {

using session::Errc;

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

}  // namespace

std::string partOf(const std::string& file) { return file + ".part"; }

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

}  // namespace kwtsdk::tool
