#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "tools/command_line.h"
#include "tools/words.h"

namespace kwtsdk::tool {
namespace {

using session::RecordingInfo;

Record recordOf(const RecordingInfo& recording) {
  Record record{{"id", std::uint64_t{recording.id}},
                {"size", recording.bytes},
                {"type", recording.type},
                {"typeName", typeText(recording.type)},
                {"present", true}};
  if (recording.created) record["created"] = creationTimeText(*recording.created, "%Y-%m-%dT%H:%M:%S");
  return record;
}

// The third and the fourth column are aligned on the left.
using Row = std::array<std::string, 4>;

Row rowOf(const RecordingInfo& recording) {
  return {std::to_string(recording.id), sizeText(recording.bytes),
          recording.created ? creationTimeText(*recording.created, "%Y-%m-%d %H:%M") : "unknown",
          typeText(recording.type)};
}

/// Columns as narrow as they can be: they are to fit into 40.
void printTable(const std::vector<Row>& rows, Output& output) {
  Row blanks;
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i)
      blanks[i].resize(std::max(blanks[i].size(), row[i].size()), ' ');
  }
  const auto padding = [&](const Row& row, std::size_t i) { return blanks[i].substr(row[i].size()); };
  for (const Row& row : rows) {
    output.line(padding(row, 0) + row[0] + "  " + padding(row, 1) + row[1] + "  " + row[2] + padding(row, 2) +
                "  " + row[3]);
  }
}

void list(const Environment& environment, Output& output) {
  const auto recorder = openRecorder(environment);
  const auto recordings = valueOf(recorder->recordings(limitsOfQuery(environment)).wait());
  std::vector<Record> records;
  std::vector<Row> rows{{"ID", "Size", "Recorded", "Type"}};
  for (const RecordingInfo& recording : recordings) {
    rows.push_back(rowOf(recording));
    records.push_back(recordOf(recording));
  }
  output.setList("recordings", records);
  if (recordings.empty()) return output.line("The recorder holds no recordings.");
  printTable(rows, output);
}

const RegisteredCommand kListCommand({.place = 3,
                                      .name = "list",
                                      .description = "List the recordings",
                                      .prepare = [](const Arguments&) { return list; },
                                      .isQuestion = true});

}  // namespace
}  // namespace kwtsdk::tool
