#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>

#include <kwtsdk/files.h>
#include <kwtsdk/opus/conversion.h>

#include "tools/command_line.h"
#include "tools/player.h"
#include "tools/sound_file.h"
#include "tools/terminal.h"

namespace kwtsdk::tool {
namespace {

using session::Errc;

/// Digits, unless there is a file of this name.
std::optional<std::uint32_t> recordingIn(const std::string& text) {
  std::uint32_t id = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), id);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  return isNumber && !fileIsExist(text) ? std::optional(id) : std::nullopt;
}

/// The recorder gives out no other, and keeps it.
void fetchFirst(const Environment& environment, std::uint32_t id, const std::string& file) {
  const auto recorder = openRecorder(environment);
  const auto limits = session::Limits(environment.stop).silence(kAnswerTime).reconnects(20);
  const auto result =
      watched(environment, recorder->download(file, session::DownloadOptions().keep(), limits, id));
  if (result.achieved() != nullptr) return;
  if (result.error() == Errc::notFirst || result.error() == Errc::noSuchRecording) {
    throw Failure(
        ToolError::other,
        "Recording " + std::to_string(id) + " is not the recorder's first one, and it gives out no other.",
        "Look with `kwt list` which is the first; `kwt pull` saves it, and makes the next one the first.");
  }
  throw explained(result.error());
}

/// What the player can play of it: itself, or a WAV file in the folder.
std::string playable(const Environment& environment, const Player& player, const std::string& file,
                     const TemporaryFolder& folder) {
  const std::string extension = extensionOf(file), wav = folder.file("recording.wav");
  if (extension == ".wav" || extension == ".mp3") return file;
  if (player.playsAnything() && (extension == ".opus" || extension == ".ogg")) return file;
  const auto result = opus::convert(file, wav, opus::Format::wav, 0,
                                    [&](double) { return !environment.stop.stop_requested(); });
  if (result.status == opus::ConversionResult::kCancelled) return "";
  if (result.status != opus::ConversionResult::kConverted)
    throw Failure(ToolError::notConverted, result.text, "");
  return wav;
}

void play(const Environment& environment, const std::string& what, Output& output) {
  const auto id = recordingIn(what);
  if (!id && !fileIsExist(what)) {
    throw Failure(ToolError::fileUnusable, "There is no file " + what + ".",
                  "Name a file, or the id of the recorder's first recording; `kwt list` shows it.");
  }
  const auto player = Player::find(extensionOf(what) == ".mp3");
  const TemporaryFolder folder;
  if (id) fetchFirst(environment, *id, folder.file("recording.opus"));
  const std::string file = id ? folder.file("recording.opus") : what;
  const std::string sound = playable(environment, player, file, folder);
  output.set("played", what);
  output.set("player", player.name());
  if (!sound.empty()) player.play(sound, environment.stop);
}

Action preparePlay(const Arguments& arguments) {
  return [what = arguments.text("what")](const Environment& environment, Output& output) {
    play(environment, what, output);
  };
}

const RegisteredCommand kPlayCommand(
    {.place = 9,
     .name = "play",
     .description = "Play a recording with ffplay, mpv, play, pw-play, paplay or aplay",
     .parameters = {{.name = "what",
                     .valueName = "FILE|ID",
                     .description =
                         "A recording, WAV or MP3 file, or the id of the recorder's first recording, "
                         "which stays there",
                     .isRequired = true}},
     .prepare = preparePlay});

}  // namespace
}  // namespace kwtsdk::tool
