#include "tools/player.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <vector>

#include "tools/failure.h"
#include "tools/usual_signals.h"

namespace kwtsdk::tool {
namespace {

struct KnownPlayer {
  const char* name;
  bool playsAnything;
  std::array<const char*, 6> options;  // up to a null
};

constexpr std::array<KnownPlayer, 6> kPlayers{
    {{"ffplay", true, {"-nodisp", "-autoexit", "-loglevel", "error", "-i", nullptr}},
     {"mpv", true, {"--no-video", "--really-quiet", "--", nullptr}},
     {"play", false, {"-q", nullptr}},
     {"pw-play", false, {nullptr}},
     {"paplay", false, {nullptr}},
     {"aplay", false, {"-q", nullptr}}}};

bool isInstalled(const std::string& program) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (::access(folder.append("/").append(program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

Failure notPlayed(const std::string& what, const std::string& file) {
  return {ToolError::notPlayed, what + ".",
          "Try another player with " + file + ", or look whether sound works."};
}

}  // namespace

Player Player::find(bool anything) {
  std::string names;
  for (const KnownPlayer& known : kPlayers) {
    if (anything && !known.playsAnything) continue;
    if (isInstalled(known.name)) return {known.name, known.playsAnything, known.options.data()};
    names += (names.empty() ? "" : ", ") + std::string(known.name);
  }
  throw Failure(ToolError::notPlayed, "No player is installed: kwt looks for " + names + ".",
                "Install one of them, such as ffplay of the Debian package ffmpeg.");
}

void Player::play(const std::string& file, const std::stop_token& stop) const {
  std::vector<std::string> words{name_};
  for (const char* const* option = options_; *option != nullptr; ++option) words.emplace_back(*option);
  words.push_back(file.starts_with('-') ? "./" + file : file);
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t player = 0;
  const UsualSignals signals;
  const int error = ::posix_spawnp(&player, name_.c_str(), nullptr, signals.get(), arguments.data(), environ);
  if (error != 0) throw notPlayed("Cannot start " + name_ + ": " + std::strerror(error), file);
  const std::stop_callback onStop(stop, [player] { ::kill(player, SIGTERM); });
  int status = 0;
  while (::waitpid(player, &status, 0) < 0 && errno == EINTR) continue;
  if (stop.stop_requested() || status == 0) return;
  throw notPlayed(name_ + " did not play " + file, file);
}

}  // namespace kwtsdk::tool
