#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <stop_token>

#include <kwtsdk/files.h>
#include <kwtsdk/opus/recording_meter.h>

#include "tools/command_line.h"
#include "tools/length.h"
#include "tools/record_outcome.h"
#include "tools/sound_file.h"

namespace kwtsdk::tool {
namespace {

using session::Recorded;
using session::RecordingType;

/// Sound comes in bursts, between which the meter keeps what it shows.
class HeldLevel {
 public:
  explicit HeldLevel(const Scheduler& scheduler) : scheduler_(scheduler) {}

  opus::RecordingMeter::Reading held(opus::RecordingMeter::Reading reading) {
    constexpr Duration longest = std::chrono::milliseconds(500);  // bursts of 300 ms, and some more
    if (reading.peak) {
      heard_ = scheduler_.now();
      peak_ = reading.peak;
    } else if (scheduler_.now() - heard_ <= longest) {
      reading.peak = peak_;
    }
    return reading;
  }

 private:
  const Scheduler& scheduler_;
  Duration heard_{0};
  std::optional<double> peak_;
};

/// The end of the recording, of which someone at a terminal sees length and level.
session::Result<Recorded> followed(const Environment& environment, const std::string& packets,
                                   const session::Operation<Recorded>& recording,
                                   const std::function<void()>& onTick) {
  constexpr Duration tick = std::chrono::milliseconds(100);
  RecordingLine line(*environment.scheduler);
  HeldLevel level(*environment.scheduler);
  opus::RecordingMeter meter(packets);
  while ((line.visible() || onTick) && !recording.waitFor(tick)) {
    if (line.visible()) line.show(level.held(meter.read()));
    if (onTick) onTick();
  }
  line.clear();
  return recording.wait();
}

/// The recording, ended early by `environment.stop` or `onTick`'s.
RecordOutcome recordPackets(const Environment& environment, const RecordRequest& request,
                            session::Session& recorder, const std::string& packets,
                            const std::function<void()>& onTick = {}) {
  const auto recording = recorder.record(packets, request.options, session::Limits().reconnects(0));
  const std::stop_callback onInterrupt(environment.stop,
                                       [&] { static_cast<void>(recorder.stopRecording()); });
  return {followed(environment, packets, recording, onTick)};
}

RecordOutcome recordSound(const Environment& environment, const RecordRequest& request,
                          session::Session& recorder, SoundFile& sound) {
  const std::string packets = sound.packets();
  std::optional<std::string> unwritten;
  auto outcome = recordPackets(environment, request, recorder, packets, [&] {
    if (unwritten) return;
    unwritten = sound.follow();
    if (unwritten) static_cast<void>(recorder.stopRecording());
  });
  outcome.unwritten = sound.finish();
  if (!outcome.result && outcome.result.error() == session::Errc::fileUnusable && !outcome.unwritten) {
    const std::string text = sentenceOf(outcome.result.error());
    const std::size_t at = text.find(packets);  // of which nobody knows
    outcome.unwritten =
        at == std::string::npos ? text : text.substr(0, at) + request.file + text.substr(at + packets.size());
  }
  outcome.isReaderGone = outcome.unwritten && sound.isReaderGone();
  if (const Recorded* const achieved = outcome.result.achieved()) {
    Recorded recorded = *achieved;
    recorded.bytes = sound.written();
    outcome.result = outcome.result ? session::Result<Recorded>(recorded)
                                    : session::Result<Recorded>(outcome.result.error(), recorded);
  }
  return outcome;
}

/// There it would be taken for one of the recorder's recordings.
void refuseStoreFolder(const std::string& file, const std::string& store) {
  std::error_code ignored;
  if (!std::filesystem::equivalent(std::filesystem::absolute(file).parent_path(), store, ignored)) return;
  throw Failure(ToolError::fileUnusable,
                "Cannot write " + file + ": it would be in the simulated recorder's folder.",
                "Name a file elsewhere with -o.");
}

void checkFile(const Environment& environment, const std::string& file) {
  refuseStoreFolder(file, environment.simulatedFolder);
  checkOutput(file);
  if (fileSize(file) > 0) {
    throw Failure(ToolError::fileUnusable, "Cannot write " + file + ": it is not empty.",
                  "Name another file with -o; a recording never overwrites one.");
  }
}

std::unique_ptr<SoundFile> soundFileOf(const RecordRequest& request) {
  if (request.isPiped()) return std::make_unique<SoundFile>();
  return request.format ? std::make_unique<SoundFile>(request.file, *request.format) : nullptr;
}

void record(const Environment& environment, const RecordRequest& request, Output& output) {
  if (!request.isPiped()) checkFile(environment, request.file);
  output.set("file", request.file);
  output.set("type", static_cast<std::int64_t>(request.options.type()));
  const auto sound = soundFileOf(request);
  const auto recorder = openRecorder(environment);
  valueOf(recorder->battery(limitsOfQuery(environment)).wait());
  reportRecording(request,
                  sound ? recordSound(environment, request, *recorder, *sound)
                        : recordPackets(environment, request, *recorder, request.file),
                  output);
}

RecordingType typeOf(const std::string& text) {
  /// By the number that the recorder has for them.
  constexpr std::array<const char*, 5> types{"normal", "noise-reduced", "call", "media", "ambient"};
  for (std::size_t type = 0; type < types.size(); ++type) {
    if (text == types.at(type) || text == std::to_string(type)) return static_cast<RecordingType>(type);
  }
  throw UsageError("There is no type " + text +
                   ": -t takes normal, noise-reduced, call, media, ambient or 0 to 4");
}

std::string nameByTime() {
  const std::time_t now = std::time(nullptr);
  std::tm fields{};
  ::localtime_r(&now, &fields);
  std::array<char, 64> name{};
  return {name.data(), std::strftime(name.data(), name.size(), "recording-%Y%m%d-%H%M%S.opus", &fields)};
}

/// What is no file is refused before anything is sent.
std::optional<opus::LiveConversion::Format> formatOf(const std::string& file) {
  using Format = opus::LiveConversion::Format;
  const std::map<std::string, std::optional<Format>> formats{
      {".opus", Format::oggOpus}, {".wav", Format::wav}, {".mp3", Format::mp3}, {".rec", std::nullopt}};
  std::error_code ignored;
  const auto status = std::filesystem::status(file, ignored);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) return std::nullopt;
  const auto found = formats.find(extensionOf(file));
  require(found != formats.end(),
          "-o needs a name that ends in .opus, .wav, .mp3 or, for the recorder's packets, .rec; " + file +
              " does not");
  return found->second;
}

Action prepareRecord(const Arguments& arguments) {
  require(!arguments.has("-o") || !arguments.text("-o").empty(), "-o needs the name of a file");
  RecordRequest request{
      arguments.has("-o") ? arguments.text("-o") : nameByTime(), opus::LiveConversion::Format::oggOpus, {}};
  if (!request.isPiped()) request.format = formatOf(request.file);
  if (request.isPiped()) requirePipedOutput();
  if (arguments.has("-t")) request.options.type(typeOf(arguments.text("-t")));
  if (arguments.has("-d")) request.options.length(lengthOf(arguments.text("-d")));
  return [request](const Environment& environment, Output& output) { record(environment, request, output); };
}

const RegisteredCommand kRecordCommand(
    {.place = 6,
     .name = "record",
     .description = "Record live into a file, until Ctrl-C, the recorder or the time ends it",
     .parameters =
         {{"-o,--output", "FILE",
           "A new or empty file: .opus (Ogg Opus, the recorder's own packets), .wav, .mp3 or .rec (the "
           "packets alone); - for Ogg Opus to a pipe (default: recording-TIME.opus)"},
          {"-t,--type", "normal|noise-reduced|call|media|ambient",
           "What to record, also as 0 to 4 (default: normal)"},
          {"-d,--duration", "LENGTH", "End it after that long: 90, 10s, 5m, 1h, 1:30 or 1:02:03"}},
     .prepare = prepareRecord});

}  // namespace
}  // namespace kwtsdk::tool
