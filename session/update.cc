#include "session/update.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include <kwtsdk/cmd_response.h>

#include "codec/error_codes.h"
#include "codec/hex.h"
#include "session/firmware_image.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::session::detail {
namespace {

using internal::hexString;
using Stage = ProgressReport::Stage;

// The first bytes of the answers; the second one of all that agree is 01.
constexpr std::uint8_t kPrepared = 0x98, kSelected = 0x91, kBegun = 0x81, kConfigured = 0x87, kChecked = 0x83,
                       kBye = 0x84, kAgreed = 0x01;

class Update {
 public:
  Update(Conversation& recorder, std::filesystem::path path, const Bytes& image, const NoteVersion& noted)
      : recorder_(recorder), path_(std::move(path)), image_(image), noted_(noted) {}

  Result<Installed> run();

 private:
  Result<std::string> askBefore();
  Result<std::string> askVersion();
  Result<Done> send();
  MaybeFailure sendOverOneLink();
  MaybeFailure handshake();
  Result<Bytes> step(const Request& request);
  MaybeFailure agree(const Request& request, const Failure& refused);
  MaybeFailure transfer();
  MaybeFailure sendPacket();
  MaybeFailure endSegment();
  Result<Installed> install();
  Result<std::string> askInstalled();
  bool isInstalled(const std::string& version) const;

  Conversation& recorder_;
  const std::filesystem::path path_;
  const Bytes& image_;
  const NoteVersion& noted_;
  Installed installed_;
  std::int64_t mtu_ = 0;
  std::size_t position_ = 0;
  Bytes segment_;
};

Result<Installed> Update::run() {
  const Duration began = recorder_.now();
  installed_.bytes = image_.size();
  recorder_.operation().report(Stage::asking);
  const auto before = recorder_.persist([this] { return askBefore(); });
  if (!before) return before.error();
  installed_.before = *before;
  if (const auto sent = send(); !sent) {
    recorder_.endLink();  // with which the recorder forgets what it has of the image
    return sent.error();
  }
  auto result = install();
  installed_.took = recorder_.now() - began;
  if (!result) return {result.error(), installed_};
  recorder_.publish(event::FirmwareInstalled{installed_.before, installed_.after});
  return installed_;
}

/// Twice alike: nothing shows that it arrived damaged, and another one afterwards means that it is installed.
Result<std::string> Update::askBefore() {
  constexpr int most = 4;
  auto version = askVersion();
  for (int times = 1; times < most && version; ++times) {
    const std::string last = *version;
    version = askVersion();
    if (version && *version == last) break;
  }
  return version;
}

Result<std::string> Update::askVersion() {
  const auto answer = recorder_.exchange(versionRequest());
  if (!answer) return answer.error();
  std::string version = KWTCmdResponse::getVersion(hexString(*answer));
  noted_(version);
  return version;
}

/// Over another link it begins anew, as it does after a segment that arrived damaged: recorders begin with
/// each preparation, and none says how it would go on.
Result<Done> Update::send() {
  return recorder_.persist([this]() -> Result<Done> {
    for (;;) {
      const auto failure = sendOverOneLink();
      if (!failure) return Done{};
      if (failure->code() != Errc::damaged || !recorder_.useRetry()) return *failure;
      recorder_.endLink();
      if (auto lost = recorder_.ready()) return *lost;
    }
  });
}

MaybeFailure Update::sendOverOneLink() {
  if (auto failure = handshake()) return failure;
  if (auto failure = transfer()) return failure;
  recorder_.operation().report(Stage::verifying, image_.size(), image_.size());
  return agree(firmwareRequest(wire::byeRequest(), kBye),
               {Errc::imageRefused, "the recorder refused the whole image at its end", Effect::none,
                internal::updateByeError()});
}

MaybeFailure Update::handshake() {
  recorder_.operation().report(Stage::asking);
  using internal::updateConfigError, internal::updatePrepareError, internal::updateSelectionError;
  const auto refused = [](const char* what, const Error& cause) {
    return Failure(Errc::refused, std::string("the recorder refused ") + what, Effect::none, cause);
  };
  if (auto failure = agree(firmwareRequest(wire::prepareRequest(), kPrepared),
                           refused("the preparation", updatePrepareError())))
    return failure;
  if (auto failure = agree(firmwareRequest(wire::selectionRequest(), kSelected),
                           refused("the partition", updateSelectionError())))
    return failure;
  const auto resumed = step(resumeRequest(wire::resumeRequest(wire::kSegmentSize, 0)));
  if (!resumed) return resumed.error();
  const auto begun = step(firmwareRequest(wire::beginRequest(image_), kBegun));
  if (!begun) return begun.error();
  mtu_ = std::min(KWTCmdResponse::getMTU(hexString(*begun)),
                  static_cast<std::int64_t>(recorder_.connection().longestWrite()));
  if (auto failure = checkTail(path_, image_.size(), mtu_)) return failure;
  return agree(firmwareRequest(wire::configRequest(wire::identityOf(image_).value_or("")), kConfigured),
               {Errc::imageRefused, "the recorder refused the image", Effect::none, updateConfigError()});
}

Result<Bytes> Update::step(const Request& request) {
  if (auto failure = recorder_.pause()) return *failure;
  return recorder_.exchange(request);
}

MaybeFailure Update::agree(const Request& request, const Failure& refused) {
  const auto answer = step(request);
  if (!answer) return answer.error();
  return answer->at(1) == kAgreed ? std::nullopt : MaybeFailure(refused);
}

MaybeFailure Update::transfer() {
  position_ = 0;
  segment_.clear();
  while (position_ < image_.size()) {
    recorder_.operation().report(Stage::transferring, position_, image_.size());
    if (auto failure = sendPacket()) return failure;
    if (segment_.size() < wire::kSegmentSize && position_ < image_.size()) continue;
    if (auto failure = endSegment()) return failure;
  }
  return std::nullopt;
}

MaybeFailure Update::sendPacket() {
  const std::size_t size = packetSize(mtu_, image_.size(), position_, segment_.size());
  const auto begin = image_.begin() + static_cast<std::ptrdiff_t>(position_);
  const Bytes packet(begin, begin + static_cast<std::ptrdiff_t>(size));
  const auto acknowledged = recorder_.exchange(firmwareFrame(wire::dataRequest(packet)));
  if (!acknowledged) return acknowledged.error();
  segment_.insert(segment_.end(), packet.begin(), packet.end());
  position_ += size;
  return std::nullopt;
}

MaybeFailure Update::endSegment() {
  auto failure = agree(firmwareRequest(wire::checkRequest(segment_), kChecked),
                       {Errc::damaged, "part of the image arrived damaged or not at all", Effect::none,
                        internal::transferCheckError()});
  segment_.clear();
  return failure;
}

/// The recorder has accepted the image: from here on nothing stops it, and what it runs then is asked.
Result<Installed> Update::install() {
  constexpr Duration afterCancelling = std::chrono::seconds(5);
  constexpr int most = 3;
  recorder_.shield(afterCancelling);
  recorder_.operation().report(Stage::installing, image_.size(), image_.size());
  const std::uint64_t link = recorder_.linkNumber();
  auto sent = step(firmwareFrame(wire::doneRequest()));
  auto after = askInstalled();
  // Nothing answers the command; one that was not heard leaves the version, and the link.
  const std::string expected = wire::versionOf(image_);
  for (int times = 1; times < most && after && *after != expected && link == recorder_.linkNumber();
       ++times) {
    sent = step(firmwareFrame(wire::doneRequest()));
    after = askInstalled();
  }
  recorder_.endShield();
  if (!after) {
    return Failure(after.error().code(), "the recorder accepted the image and has not told its version since",
                   sent ? Effect::done : Effect::unknown, after.error().cause());
  }
  installed_.after = *after;
  if (isInstalled(*after)) return installed_;
  return Failure(sent ? Errc::refused : sent.error().code(),
                 "the recorder accepted the image, and still tells version " + *after, Effect::unknown,
                 sent ? std::nullopt : sent.error().cause());
}

/// By the version that it tells: the image's, or at least another than before.
bool Update::isInstalled(const std::string& version) const {
  return version != installed_.before || version == wire::versionOf(image_);
}

/// It may restart, which takes its time and the link, whatever the limits say of links.
Result<std::string> Update::askInstalled() {
  constexpr Duration restart = std::chrono::seconds(30), again = std::chrono::milliseconds(500);
  const Duration until = recorder_.now() + restart;
  for (;;) {
    auto failure = recorder_.pause();
    if (!failure) failure = recorder_.ready();
    if (!failure) {
      auto version = askVersion();
      if (version) return version;
      failure = version.error();
    }
    recorder_.distrustLink();
    if (recorder_.ended() || recorder_.now() >= until) return *failure;
    if (auto ended = recorder_.pause(again)) return *ended;
  }
}

}  // namespace

Result<Installed> update(Conversation& recorder, const std::filesystem::path& image,
                         const NoteVersion& noted) {
  const auto bytes = readImage(image);
  if (!bytes) return bytes.error();
  return Update(recorder, image, *bytes, noted).run();
}

}  // namespace kwtsdk::session::detail
