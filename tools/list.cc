#include <array>
#include <cstdint>
#include <cstdio>

#include "tools/command_line.h"
#include "tools/handover.h"

namespace kwtsdk::tool {
namespace {

using Headers = std::vector<KWTFileHeader>;

Headers headersOf(Session& session) {
  struct Answer {
    MaybeError error;
    std::optional<Headers> headers;
  };
  const auto answer = std::make_shared<Handover<Answer>>(session.scheduler(), "kwt.list");
  session.recorder().getFlashFileList([answer](const MaybeError& error, const auto& headers) {
    answer->put({error, headers});
  });
  // Comes always: every exchange of the listing has a time-out of its own.
  const auto result = answer->take(std::nullopt);
  if (!isConnected(session)) throw noAnswer(session);
  if (result->error) throw explained(*result->error);
  return result->headers.value_or(Headers{});
}

/// `id` 0: not known.
Record recordOf(const KWTFileHeader& header, std::uint64_t id) {
  Record record{{"size", header.filesize()}, {"type", header.recordType()}, {"present", header.exist()}};
  if (id != 0) record["id"] = id;
  if (const auto created = header.creatTime())
    record["created"] = creationTimeText(*created, "%Y-%m-%dT%H:%M:%S");
  return record;
}

std::string lineOf(const KWTFileHeader& header, std::uint64_t id) {
  const auto created = header.creatTime();
  const std::string time = created ? creationTimeText(*created, "%Y-%m-%d %H:%M:%S") : "unknown";
  std::array<char, 128> line{};
  std::snprintf(line.data(), line.size(), "%10s  %12ju  %-19s  %4jd%s",
                id == 0 ? "?" : std::to_string(id).c_str(), static_cast<std::uintmax_t>(header.filesize()),
                time.c_str(), static_cast<std::intmax_t>(header.recordType()),
                header.exist() ? "" : "  (gone)");
  return line.data();
}

void list(const Environment& environment, Output& output) {
  Session session(environment);
  const FlashInfo info = storeInfo(session);
  pause(session);
  const Headers headers = headersOf(session);

  // Recordings without an answer are left out, and then nobody knows which id is whose.
  const bool isWhole = headers.size() == info.Num;
  std::vector<Record> records;
  if (headers.empty() && isWhole) output.line("The recorder holds no recordings.");
  if (!headers.empty()) output.line("        id  size (bytes)  created              type");
  for (const KWTFileHeader& header : headers) {
    const std::uint64_t id = isWhole ? info.FirstID + records.size() : 0;
    output.line(lineOf(header, id));
    records.push_back(recordOf(header, id));
  }
  output.setList("recordings", records);
  if (isWhole) return;
  throw Failure(ToolError::noAnswer,
                "The recorder described only " + std::to_string(headers.size()) + " of its " +
                    std::to_string(info.Num) + " recordings.",
                "Check that it stays in range, then run the command again.");
}

const RegisteredCommand kListCommand({.place = 3,
                                      .name = "list",
                                      .description = "List the recordings",
                                      .prepare = [](const Arguments&) { return list; }});

}  // namespace
}  // namespace kwtsdk::tool
