#include "tools/commands.h"
#include "tools/tour_folder.h"

namespace kwtsdk::tool {
namespace {

class Tour {
 public:
  Tour(const Host& host, Output& output)
      : host_{host.scheduler, host.interrupt, folder_.store()}, output_(output), steps_(output.json()) {}

  void run();

 private:
  using Command = void (*)(const Host&, Output&);

  void heading(const std::string& title, const std::string& command);
  void show(const std::string& title, const std::string& command, Command shown);
  void loseLinkHalfWay();
  void resume();
  void compare();
  [[noreturn]] void fail(const std::string& reason) const;

  const TourFolder folder_;
  const Host host_;
  Output& output_;
  Output steps_;  // for the lines of the commands; their results are not the tour's
  std::string step_;
};

/// Shows what a person would type; that is also what runs.
void Tour::heading(const std::string& title, const std::string& command) {
  step_ = title;
  output_.line("\n== " + title);
  if (!command.empty()) output_.line("$ kwt --sim " + folder_.store() + " " + command);
}

void Tour::show(const std::string& title, const std::string& command, Command shown) {
  heading(title, command);
  shown(host_, steps_);
}

void Tour::loseLinkHalfWay() {
  // Before the data come the answers to the queries of kwt and of the library, three each.
  constexpr std::uint64_t queries = 6, bytesInPacket = 84;
  const std::uint64_t packets = (folder_.storedSize() + bytesInPacket - 1) / bytesInPacket;
  heading("A download whose connection is lost half-way", "pull -o " + folder_.pulled());
  folder_.writeScript("notification " + std::to_string(queries + packets / 2) + " disconnect\n");
  try {
    runPull(host_, folder_.pulled(), steps_);
  } catch (const Failure& failure) {
    if (!failure.is(ToolError::connectionLost)) throw;
    output_.line(std::string(failure.what()) + "\n" + failure.hint());
    return;
  }
  fail("the download did not notice that the connection was lost");
}

void Tour::resume() {
  heading("The same command again continues it", "pull -o " + folder_.pulled());
  folder_.writeScript("");
  runPull(host_, folder_.pulled(), steps_);
}

void Tour::compare() {
  heading("Comparison with the recorder's original", "");
  if (!folder_.isPulledWhole()) fail("the file differs from the original");
  output_.line("The same, byte for byte (" + std::to_string(folder_.storedSize()) + " bytes).");
  if (!folder_.isFirstDeleted()) fail("the recording is still on the recorder");
  output_.line("It is gone from the recorder's store.");
  output_.set("comparedBytes", folder_.storedSize());
}

void Tour::fail(const std::string& reason) const {
  throw Failure(ToolError::other, reason, "Its files are in " + folder_.path() + ".");
}

void Tour::run() {
  output_.set("folder", folder_.path());
  output_.line("A simulated recorder with three recordings, in " + folder_.path());
  folder_.writeScript("");
  try {
    show("The recorder", "info", runInfo);
    show("Its recordings", "list", runList);
    loseLinkHalfWay();
    resume();
    compare();
    show("What is left on it", "list", runList);
    show("Deleting one without downloading it", "rm", runRemove);
  } catch (const std::exception& exception) {
    throw Failure(ToolError::other, "The tour failed at \"" + step_ + "\": " + exception.what(),
                  "Its files are in " + folder_.path() + ".");
  }
  output_.line(
      "\nTour done: queried and listed a recorder, downloaded a recording over a connection that broke, and "
      "found it the same byte for byte.\nFiles: " +
      folder_.path() + " (pulled.opus, original.opus, and the recorder's store/)");
}

}  // namespace

void runTour(const Host& host, Output& output) { Tour(host, output).run(); }

}  // namespace kwtsdk::tool
