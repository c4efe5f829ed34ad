#include "tools/question.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <iostream>
#include <stop_token>

namespace kwtsdk::tool {
namespace {

/// Becomes readable when the environment's stop is requested.
class StopDescriptor {
 public:
  explicit StopDescriptor(const Environment& environment)
      : event_(::eventfd(0, EFD_CLOEXEC)), onStop_(environment.stop, Wake{event_.descriptor}) {}

  int get() const { return event_.descriptor; }

 private:
  struct Event {
    int descriptor;
    explicit Event(int opened) : descriptor(opened) {}
    ~Event() { ::close(descriptor); }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;
  };
  struct Wake {
    int descriptor;
    void operator()() const { ::eventfd_write(descriptor, 1); }
  };
  const Event event_;
  std::stop_callback<Wake> onStop_;
};

/// What somebody typed before the end of the line or of the input.
std::string answer(const Environment& environment) {
  const StopDescriptor stop(environment);
  std::array<pollfd, 2> sources{pollfd{STDIN_FILENO, POLLIN, 0}, pollfd{stop.get(), POLLIN, 0}};
  std::string line;
  for (char next = 0; next != '\n';) {
    ::poll(sources.data(), sources.size(), -1);
    if (environment.stop.stop_requested())
      throw Failure(ToolError::interrupted, "Interrupted.", "Run the command again.");
    if (::read(STDIN_FILENO, &next, 1) <= 0) break;
    if (next != '\n') line += next;
  }
  return line;
}

}  // namespace

void askForYes(const Environment& environment, const std::string& why, const std::string& question,
               const std::string& otherwise) {
  if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDERR_FILENO) != 1)
    throw Failure(ToolError::notAgreed, why, otherwise);
  std::cerr << why << '\n' << question << " [y/N] " << std::flush;
  const std::string said = answer(environment);
  if (said == "y" || said == "Y" || said == "yes") return;
  throw Failure(ToolError::notAgreed, "Not agreed: nothing was done.", "Answer y if you want it.");
}

}  // namespace kwtsdk::tool
