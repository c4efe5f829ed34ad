#include <array>
#include <cstdint>
#include <cstdio>

#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

using session::RecordingInfo;

Record recordOf(const RecordingInfo& recording) {
  Record record{{"id", std::uint64_t{recording.id}},
                {"size", recording.bytes},
                {"type", recording.type},
                {"present", true}};
  if (recording.created) record["created"] = creationTimeText(*recording.created, "%Y-%m-%dT%H:%M:%S");
  return record;
}

std::string lineOf(const RecordingInfo& recording) {
  const std::string time =
      recording.created ? creationTimeText(*recording.created, "%Y-%m-%d %H:%M:%S") : "unknown";
  std::array<char, 128> line{};
  std::snprintf(line.data(), line.size(), "%10s  %12ju  %-19s  %4jd", std::to_string(recording.id).c_str(),
                static_cast<std::uintmax_t>(recording.bytes), time.c_str(),
                static_cast<std::intmax_t>(recording.type));
  return line.data();
}

void list(const Environment& environment, Output& output) {
  const auto recorder = openRecorder(environment);
  const auto recordings = valueOf(recorder->recordings(limitsOfQuery(environment)).wait());
  output.line(recordings.empty() ? "The recorder holds no recordings."
                                 : "        id  size (bytes)  created              type");
  std::vector<Record> records;
  for (const RecordingInfo& recording : recordings) {
    output.line(lineOf(recording));
    records.push_back(recordOf(recording));
  }
  output.setList("recordings", records);
}

const RegisteredCommand kListCommand({.place = 3,
                                      .name = "list",
                                      .description = "List the recordings",
                                      .prepare = [](const Arguments&) { return list; }});

}  // namespace
}  // namespace kwtsdk::tool
