#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "tools/command_line.h"
#include "tools/replay_link.h"
#include "tools/wire_log.h"
#include "tools/words.h"

namespace kwtsdk::tool {
namespace {

namespace fs = std::filesystem;
using Frames = std::vector<Bytes>;

// The first bytes of frames, as 16-bit numbers.
constexpr unsigned kStatusFrame = 0x99EC, kVersionFrame = 0x8E42, kPrepareFrame = 0x9701,
                   kBeginFrame = 0x8042, kCountFrame = 0x0182, kInfoFrame = 0x0282, kDownloadFrame = 0x0382,
                   kDeleteFrame = 0x0482, kStopFrame = 0x0081;

unsigned codeOf(const Bytes& frame) { return frame.size() < 2 ? 0 : frame[0] * 256U + frame[1]; }

std::uint32_t idIn(const Bytes& deletion) {
  std::uint32_t id = 0;
  for (std::size_t i = 0; i < 4 && 4 + i < deletion.size(); ++i)
    id |= static_cast<std::uint32_t>(deletion[4 + i]) << (8 * i);
  return id;
}

/// The image of the last attempt of an update; what of it was not sent is missing.
Bytes imageIn(const Frames& frames) {
  constexpr std::uint8_t data = 0x85;
  Bytes image;
  for (const Bytes& frame : frames) {
    if (codeOf(frame) == kBeginFrame) image.clear();
    if (!frame.empty() && frame[0] == data) image.insert(image.end(), frame.begin() + 1, frame.end());
  }
  return image;
}

/// Asks a session for what the trace's frames were sent for, one operation after the other.
class Replaying {
 public:
  Replaying(std::shared_ptr<ReplayLink> link, session::Session& recorder, fs::path folder, Output& output)
      : link_(std::move(link)), recorder_(recorder), folder_(std::move(folder)), output_(output) {}

  void run(const std::stop_token& stop);

 private:
  void next(const Frames& rest);
  void status(const Bytes& frame);
  void store(const Frames& rest);
  void recordings();
  void download(bool all, bool keep);
  void remove(std::uint32_t id);
  void record(const Bytes& start);
  void update(const Frames& rest);
  void tell(const std::string& operation, const std::string& text);
  bool failed(const std::string& operation, const session::Failure& failure);

  const std::shared_ptr<ReplayLink> link_;
  session::Session& recorder_;
  const fs::path folder_;
  Output& output_;
  std::vector<Record> operations_;
  unsigned recorded_ = 0;
};

void Replaying::run(const std::stop_token& stop) {
  std::uint64_t unknown = 0;
  for (Frames rest = link_->rest(); !rest.empty() && !stop.stop_requested();) {
    next(rest);
    Frames left = link_->rest();
    if (left.size() == rest.size()) {  // nothing that the library sends
      ++unknown;
      link_->skip();
      left = link_->rest();
    }
    rest = std::move(left);
  }
  if (unknown > 0) output_.line(std::to_string(unknown) + " frames are none that the library sends there.");
  output_.setList("operations", operations_);
  output_.set("unknown", unknown);
}

void Replaying::next(const Frames& rest) {
  constexpr unsigned recordings = 0x81, group = 0xFF;
  const unsigned head = codeOf(rest.front());
  if (head == kVersionFrame && rest.size() > 1 && codeOf(rest[1]) == kPrepareFrame) return update(rest);
  if (head == kStatusFrame || head == kVersionFrame) return status(rest.front());
  if (head == kCountFrame) return store(rest);
  if ((head & group) == recordings) record(rest.front());
}

void Replaying::status(const Bytes& frame) {
  constexpr std::size_t selectorAt = 16;
  constexpr std::uint8_t battery = 0x03;
  const session::Limits limits = session::Limits().silence(kAnswerTime).reconnects(0);
  if (codeOf(frame) == kVersionFrame) {
    const auto version = recorder_.firmware(limits).wait();
    if (version || failed("firmware", version.error())) tell("firmware", *version);
    return;
  }
  if (frame.size() > selectorAt && frame[selectorAt] == battery) {
    const auto level = recorder_.battery(limits).wait();
    if (level || failed("battery", level.error())) tell("battery", batteryText(*level));
    return;
  }
  const auto storage = recorder_.storage(limits).wait();
  if (!storage && !failed("storage", storage.error())) return;
  std::string sizes;
  for (const std::uint64_t size : *storage) sizes += (sizes.empty() ? "" : " and ") + sizeText(size);
  tell("storage", sizes);
}

/// Listing, download and deletion begin alike.
void Replaying::store(const Frames& rest) {
  const auto other = std::find_if(rest.begin() + 1, rest.end(),
                                  [](const Bytes& frame) { return codeOf(frame) != kInfoFrame; });
  const auto infos = other - rest.begin() - 1;
  const unsigned what = other == rest.end() ? 0 : codeOf(*other);
  const bool deletes = std::ranges::count(rest, kDeleteFrame, codeOf) > 0;
  if (what == kDownloadFrame) return download(infos > 1, !deletes);
  if (what == kDeleteFrame) return remove(idIn(*other));
  recordings();
}

void Replaying::recordings() {
  const auto all = recorder_.recordings(session::Limits().silence(kAnswerTime).reconnects(0)).wait();
  if (!all && !failed("recordings", all.error())) return;
  std::string text = std::to_string(all->size());
  for (const auto& one : *all) text += ", " + std::to_string(one.id) + ": " + sizeText(one.bytes);
  tell("recordings", text);
}

void Replaying::download(bool all, bool keep) {
  constexpr unsigned connections = 20;
  const auto limits = session::Limits().silence(kAnswerTime).reconnects(connections);
  const auto options = session::DownloadOptions().keep(keep);
  std::vector<session::Saved> saved;
  if (all) {
    const auto result = recorder_.downloadAll(folder_, options, limits).wait();
    if (const auto* const harvest = result.achieved()) saved = harvest->saved;
    if (!result) failed("download", result.error());
  } else {
    const auto file = folder_ / ("recording-" + std::to_string(++recorded_) + ".opus");
    const auto result = recorder_.download(file, options, limits).wait();
    if (const auto* const one = result.achieved()) saved.push_back(*one);
    if (!result) failed("download", result.error());
  }
  for (const auto& one : saved) {
    tell("download", "recording " + std::to_string(one.recording.id) + ", " + bytesText(one.recording.bytes) +
                         (one.checked ? ", whole" : ", could not be checked") +
                         (one.deleted == session::Effect::done ? ", deleted" : ""));
  }
}

void Replaying::remove(std::uint32_t id) {
  const auto result = recorder_.remove(id, session::Limits().silence(kAnswerTime).reconnects(0)).wait();
  if (result || failed("deletion", result.error())) tell("deletion", "recording " + std::to_string(id));
}

void Replaying::record(const Bytes& start) {
  using session::RecordingType;
  const auto type =
      start[0] == 0 ? RecordingType::ambient : static_cast<RecordingType>(std::min(start[0] - 1, 3));
  const auto file = folder_ / ("live-" + std::to_string(++recorded_) + ".rec");
  link_->setOnDue([this](const Bytes& frame) {
    if (codeOf(frame) == kStopFrame) static_cast<void>(recorder_.stopRecording());
  });
  const auto result =
      recorder_.record(file, session::RecordOptions().type(type), session::Limits().reconnects(0)).wait();
  link_->setOnDue(nullptr);
  if (const auto* const recorded = result.achieved()) {
    tell("recording", typeText(static_cast<std::int64_t>(type)) + ", " +
                          secondsText(std::chrono::duration<double>(recorded->length).count()) + ", " +
                          bytesText(recorded->bytes));
  }
  if (!result) failed("recording", result.error());
}

void Replaying::update(const Frames& rest) {
  constexpr unsigned connections = 2;
  const Bytes image = imageIn(rest);
  const auto file = folder_ / "firmware.bin";
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(image.size()));
  const auto result =
      recorder_.update(file, session::Limits().silence(kAnswerTime).reconnects(connections)).wait();
  if (result || failed("update", result.error()))
    tell("update", bytesText(result->bytes) + ", " + result->before + " -> " + result->after);
}

void Replaying::tell(const std::string& operation, const std::string& text) {
  output_.line(operation + ": " + text);
  operations_.push_back({{"operation", operation}, {"text", text}});
}

bool Replaying::failed(const std::string& operation, const session::Failure& failure) {
  const std::string sentence = sentenceOf(failure);
  output_.line(operation + ": failed: " + sentence);
  operations_.push_back({{"operation", operation}, {"failure", sentence}});
  return false;
}

/// Where what comes out of a replay is kept until it has been looked at.
class ReplayFolder {
 public:
  ReplayFolder() : path_((fs::temp_directory_path() / "kwt-replay-XXXXXX").string()) {
    if (::mkdtemp(path_.data()) == nullptr) {
      throw Failure(ToolError::fileUnusable,
                    "No folder can be made in " + fs::temp_directory_path().string() + ".",
                    "Free space there, set TMPDIR to another folder, or name one with -o.");
    }
  }
  ~ReplayFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  ReplayFolder(const ReplayFolder&) = delete;
  ReplayFolder& operator=(const ReplayFolder&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

/// On time that costs none: hours of a trace pass at once.
void replay(const Environment& environment, const std::string& file, const fs::path& folder, Output& output) {
  constexpr std::uint64_t seed = 1;
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  scheduler->setTimeLimit(std::chrono::hours(1000));
  const auto trace = readTrace(file);
  scheduler->run([&] {
    const auto link = ReplayLink::create(scheduler, trace);
    std::vector<std::shared_ptr<TrafficObserver>> observers;
    if (environment.verbose) observers.push_back(wireLog(scheduler));
    Platform platform;
    platform.scheduler = scheduler;
    const auto recorder =
        session::Session::create(observed(link, observers), session::Options().platform(std::move(platform)));
    Replaying(link, *recorder, folder, output).run(environment.stop);
  });
}

Action prepareReplay(const Arguments& arguments) {
  require(!arguments.has("-o") || fs::is_directory(arguments.text("-o")), "-o needs the name of a folder");
  return [file = arguments.text("trace"), folder = arguments.text("-o")](const Environment& environment,
                                                                         Output& output) {
    if (!folder.empty()) return replay(environment, file, folder, output);
    const ReplayFolder temporary;
    replay(environment, file, temporary.path(), output);
  };
}

const RegisteredCommand kReplayCommand(
    {.place = 16,
     .name = "replay",
     .description = "Show what the library makes of what was recorded with --trace",
     .recorder = Command::Recorder::none,
     .parameters = {{.name = "trace",
                     .valueName = "FILE",
                     .description = "A btsnoop file, by --trace or of an analyser",
                     .isRequired = true},
                    {"-o,--output", "DIR", "Keep what comes out of it there"}},
     .prepare = prepareReplay,
     .isQuestion = true});

}  // namespace
}  // namespace kwtsdk::tool
