#include <kwtsdk/session/errc.h>

#include <algorithm>
#include <array>

namespace kwtsdk::session {
namespace {

struct Meaning {
  Errc code;
  const char* text;
  std::optional<std::errc> condition{};
};

constexpr std::array<Meaning, 21> kMeanings{{
    {Errc::cancelled, "cancelled", std::errc::operation_canceled},
    {Errc::closed, "the session is closed", std::errc::operation_canceled},
    {Errc::badArgument, "an argument that cannot be", std::errc::invalid_argument},
    {Errc::timedOut, "the time for it is over", std::errc::timed_out},
    {Errc::stalled, "the recorder gives no sign", std::errc::timed_out},
    {Errc::linkLost, "the link was lost", std::errc::not_connected},
    {Errc::linkFailed, "the link failed", std::errc::not_connected},
    {Errc::notARecorder, "not a recorder"},
    {Errc::packetsTooSmall, "the link's packets are too small"},
    {Errc::refused, "the recorder refused"},
    {Errc::inCall, "the recorder is in a call"},
    {Errc::notInCall, "the recorder is not in a call"},
    {Errc::storeEmpty, "the recorder holds no recordings"},
    {Errc::notFirst, "not the recorder's first recording"},
    {Errc::noSuchRecording, "no such recording"},
    {Errc::recordingInUse, "the recording is in use"},
    {Errc::imageRefused, "the firmware image was refused"},
    {Errc::incomplete, "bytes are missing"},
    {Errc::damaged, "the content does not check"},
    {Errc::fileUnusable, "the file cannot be used", std::errc::io_error},
    {Errc::noResources, "no thread or no memory"},
}};

const Meaning* meaningOf(int value) noexcept {
  const auto found = std::ranges::find(kMeanings, static_cast<Errc>(value), &Meaning::code);
  return found == kMeanings.end() ? nullptr : &*found;
}

class Category : public std::error_category {
 public:
  const char* name() const noexcept override { return "kwtsdk.session"; }
  std::string message(int value) const override {
    const Meaning* const meaning = meaningOf(value);
    return meaning == nullptr ? "unknown" : meaning->text;
  }
  std::error_condition default_error_condition(int value) const noexcept override {
    const Meaning* const meaning = meaningOf(value);
    if (meaning == nullptr || !meaning->condition) return {value, *this};
    return *meaning->condition;
  }
};

}  // namespace

const std::error_category& category() noexcept {
  static const Category instance;
  return instance;
}

}  // namespace kwtsdk::session
