#include <algorithm>
#include <vector>

#include "sim/samples/sounds.h"
#include "tools/command_line.h"
#include "tools/note_detector.h"
#include "tools/tour_folder.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::tool {
namespace {

class Tour {
 public:
  Tour(const Environment& environment, Output& output)
      : environment_(environment), output_(output), steps_(output.json()) {}

  void run();

 private:
  using Words = std::vector<std::string>;

  void heading(const std::string& title);
  void show(const std::string& title, const Words& command);
  void visitStore();
  void loseLinkHalfWay();
  void compare();
  void recordLive();
  void convert(const std::string& title, const std::string& input, const char* name);
  void listen();
  void updateFirmware();
  [[noreturn]] void fail(const std::string& reason) const;

  /// What a person would type to reach the tour's recorder.
  Words simulated(Words command) const {
    command.insert(command.begin(), {"--sim", folder_.store()});
    return command;
  }

  const TourFolder folder_;
  const Environment& environment_;
  Output& output_;
  Output steps_;  // for the lines of the commands; their results are not the tour's
  std::string step_;
};

void Tour::heading(const std::string& title) {
  step_ = title;
  output_.line("\n== " + title);
}

/// Shows what a person would type; that is also what runs.
void Tour::show(const std::string& title, const Words& command) {
  heading(title);
  std::string line = "$ kwt";
  for (const std::string& word : command) line += " " + word;
  output_.line(line);
  const auto invocation = std::get<Invocation>(parseCommandLine(command));
  Environment environment = environment_;
  environment.simulatedFolder = invocation.simulatedFolder;
  invocation.action(environment, steps_);
}

void Tour::visitStore() {
  show("The recorder", simulated({"info"}));
  show("Its recordings", simulated({"list"}));
  loseLinkHalfWay();
  compare();
  show("What is left on it", simulated({"list"}));
  show("Deleting one without downloading it", simulated({"rm", "2"}));
}

void Tour::loseLinkHalfWay() {
  // Before the data come the answers to at most so many queries.
  constexpr std::uint64_t queries = 6, data = wire::kDownloadDataSize;
  const std::uint64_t packets = (folder_.storedSize() + data - 1) / data;
  folder_.writeScript("notification " + std::to_string(queries + packets / 2) + " disconnect\n");
  show("A download whose connection is lost half-way, and which goes on over the next",
       simulated({"pull", "-o", folder_.pulled()}));
  folder_.writeScript("");
}

void Tour::compare() {
  heading("Comparison with the recorder's original");
  if (!folder_.isPulledWhole()) fail("the file differs from the original");
  output_.line("The same, byte for byte (" + std::to_string(folder_.storedSize()) + " bytes).");
  if (!folder_.isFirstDeleted()) fail("the recording is still on the recorder");
  output_.line("It is gone from the recorder's store.");
  output_.set("comparedBytes", folder_.storedSize());
}

void Tour::recordLive() {
  show("A live recording of 3 seconds", simulated({"record", "-d", "3", "-o", folder_.file("live.rec")}));
}

void Tour::convert(const std::string& title, const std::string& input, const char* name) {
  show(title, {"convert", input, folder_.file(name)});
}

/// The microphone begins every recording with the melody's first note.
void Tour::listen() {
  heading("The notes in live.wav");
  const sim::WavSound sound = sim::readWavFile(folder_.file("live.wav"));
  const auto heard = notesIn(sound.samples, sound.sampleRate);
  const auto played = notesIn(sim::melody(), sim::kSampleRate);
  std::string names;
  for (const std::string& note : heard) names += " " + note;
  if (heard.empty() || heard.size() > played.size() ||
      !std::equal(heard.begin(), heard.end(), played.begin())) {
    fail("the file has the notes" + names + ", which are not those that the microphone heard");
  }
  output_.line("Those that the microphone heard:" + names + ".");
  output_.set("notes", names.substr(1));
}

void Tour::updateFirmware() {
  folder_.writeFirmware();
  show("A firmware update", simulated({"update", folder_.firmware()}));
  show("The recorder with its new firmware", simulated({"info"}));
  if (!folder_.isFirmwareInstalled()) fail("the recorder has another firmware than it was sent");
  output_.line("Its firmware is the image, byte for byte.");
}

void Tour::fail(const std::string& reason) const {
  throw Failure(ToolError::other, reason, "Its files are in " + folder_.path() + ".");
}

void Tour::run() {
  output_.set("folder", folder_.path());
  output_.line("A simulated recorder with three recordings, in " + folder_.path());
  folder_.writeScript("");
  try {
    visitStore();
    recordLive();
    convert("The live recording as WAV", folder_.file("live.rec"), "live.wav");
    convert("The live recording as MP3", folder_.file("live.rec"), "live.mp3");
    convert("The downloaded recording as WAV", folder_.pulled(), "pulled.wav");
    listen();
    updateFirmware();
  } catch (const std::exception& exception) {
    throw Failure(ToolError::other, "The tour failed at \"" + step_ + "\": " + exception.what(),
                  "Its files are in " + folder_.path() + ".");
  }
  output_.line(
      "\nTour done: queried and listed a recorder, downloaded a recording over a connection that broke and "
      "found it the same byte for byte, recorded live, converted to WAV and MP3, found the melody in the WAV "
      "file, and installed a firmware image.\nFiles: " +
      folder_.path() +
      " (pulled.opus, original.opus, pulled.wav, live.rec, live.wav, live.mp3, firmware.bin, and the "
      "recorder's store/)");
}

const RegisteredCommand kTourCommand(
    {.place = 20,
     .name = "tour",
     .description = "Show all of it with a fresh simulated recorder in a temporary folder",
     .recorder = Command::Recorder::itsOwn,
     .prepare = [](const Arguments&) {
       return [](const Environment& environment, Output& output) { Tour(environment, output).run(); };
     }});

}  // namespace
}  // namespace kwtsdk::tool
