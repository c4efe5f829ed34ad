#include "tools/hook.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <optional>
#include <vector>

#include "tools/usual_signals.h"

namespace kwtsdk::tool {
namespace {

/// What the command is started with: none of kwt's input.
class SpawnPlan {
 public:
  explicit SpawnPlan(bool printsAside) {
    ::posix_spawn_file_actions_init(&files_);
    ::posix_spawn_file_actions_addopen(&files_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (printsAside) ::posix_spawn_file_actions_adddup2(&files_, STDERR_FILENO, STDOUT_FILENO);
  }
  ~SpawnPlan() { ::posix_spawn_file_actions_destroy(&files_); }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  int start(pid_t& process, std::vector<std::string> words, std::vector<std::string> settings) const {
    std::vector<char*> arguments, variables;
    for (std::string& word : words) arguments.push_back(word.data());
    for (std::string& setting : settings) variables.push_back(setting.data());
    for (char** variable = environ; *variable != nullptr; ++variable) variables.push_back(*variable);
    arguments.push_back(nullptr);
    variables.push_back(nullptr);
    return ::posix_spawn(&process, "/bin/sh", &files_, signals_.get(), arguments.data(), variables.data());
  }

 private:
  posix_spawn_file_actions_t files_{};
  UsualSignals signals_;
};

/// Its status, as waitpid has it. Ctrl-C reaches the command by itself at a terminal, SIGTERM does not.
int statusOf(pid_t process, const Environment& environment) {
  constexpr Duration tick = std::chrono::milliseconds(20), longest = std::chrono::seconds(5);
  std::optional<Duration> asked;
  int status = 0;
  while (::waitpid(process, &status, WNOHANG) == 0) {
    const Duration now = environment.scheduler->now();
    if (environment.stop.stop_requested() && !asked) {
      asked = now;
      ::kill(process, SIGTERM);
    }
    if (asked && now - *asked > longest) ::kill(process, SIGKILL);
    environment.scheduler->sleep(tick);
  }
  return status;
}

}  // namespace

std::string runHook(const Environment& environment, const std::string& command, const Delivered& delivered,
                    bool printsAside) {
  const session::RecordingInfo& recording = delivered.saved.recording;
  const std::string file = std::filesystem::absolute(delivered.file);
  const std::vector<std::string> settings{
      "KWT_FILE=" + file, "KWT_ID=" + std::to_string(recording.id),
      "KWT_CREATED=" +
          (recording.created ? creationTimeText(*recording.created, "%Y-%m-%dT%H:%M:%S") : std::string())};
  pid_t process = 0;
  const int error = SpawnPlan(printsAside).start(process, {"sh", "-c", command, "sh", file}, settings);
  if (error != 0) return std::string("it could not be started: ") + std::strerror(error);
  const int status = statusOf(process, environment);
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status)) + " ended it";
  const int code = WEXITSTATUS(status);
  return code == 0 ? "" : "it ended with status " + std::to_string(code);
}

}  // namespace kwtsdk::tool
