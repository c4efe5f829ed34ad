#include "session/store.h"

#include <array>
#include <limits>
#include <span>
#include <string>

#include <kwtsdk/cmd_response.h>

#include "codec/error_codes.h"
#include "codec/hex.h"
#include "session/creation_time.h"

namespace kwtsdk::session::detail {
namespace {

using internal::hexString;

constexpr std::size_t kTimeAt = 28, kTimeSize = 6;  // in the answer to an info request

RecordingInfo infoOf(std::uint32_t id, const KWTFileHeader& header, const Bytes& answer) {
  const auto time = std::span(answer).subspan(kTimeAt, kTimeSize);
  return {id, header.filesize(), creationTime(time), header.recordType()};
}

struct Refusal {
  Errc code;
  const char* text;
};

Refusal refusalOf(std::uint64_t code) {
  constexpr std::array<Refusal, 4> refusals{
      {{Errc::notFirst, "the recorder did not delete it: it is not its first recording"},
       {Errc::noSuchRecording, "the recorder did not delete it: it has no recording of this id"},
       {Errc::recordingInUse, "the recorder did not delete it: it is in use"},
       {Errc::storeEmpty, "the recorder did not delete it: it holds no recordings"}}};
  if (code >= 1 && code <= refusals.size()) return refusals.at(code - 1);
  return {Errc::refused, "the recorder did not delete it"};
}

}  // namespace

Result<StoreCount> askCount(Conversation& recorder) {
  const auto answer = recorder.exchange(countRequest());
  if (!answer) return answer.error();
  const FlashInfo info = KWTCmdResponse::getFlashInfo(hexString(*answer)).value_or(FlashInfo{});
  return StoreCount{info.Num, static_cast<std::uint32_t>(info.FirstID)};
}

Result<std::optional<RecordingInfo>> askInfo(Conversation& recorder, std::uint32_t id) {
  if (const auto failure = recorder.pause()) return *failure;
  const auto answer = recorder.exchange(infoRequest(id));
  if (!answer) return answer.error();
  const auto header = KWTCmdResponse::getFileInfo(hexString(*answer));
  if (!header || !header->exist()) return std::optional<RecordingInfo>();
  return std::optional(infoOf(id, *header, *answer));
}

Result<std::vector<RecordingInfo>> askRecordings(Conversation& recorder) {
  const auto store = askCount(recorder);
  if (!store) return store.error();
  std::vector<RecordingInfo> recordings;
  StoreCount listed = *store;
  int corrections = 3;  // of a store that is another one each time
  for (std::uint64_t i = 0; i < listed.count; ++i) {
    recorder.operation().reportItem(static_cast<std::uint32_t>(i + 1),
                                    static_cast<std::uint32_t>(listed.count));
    const auto info = askInfo(recorder, static_cast<std::uint32_t>(listed.firstId + i));
    if (!info) return info.error();
    if (*info) {
      recordings.push_back(**info);
    } else if (corrections > 0) {
      // The store has changed, or its count arrived damaged: that may name thousands that are not there.
      const auto again = askCount(recorder);
      if (!again) return again.error();
      if (*again == listed) continue;
      --corrections;
      recordings.clear();
      listed = *again;
      i = std::numeric_limits<std::uint64_t>::max();  // from its first on
    }
  }
  return recordings;
}

Result<RecordingInfo> askFirst(Conversation& recorder, std::optional<std::uint32_t> expected) {
  const auto store = askCount(recorder);
  if (!store) return store.error();
  if (store->count == 0) return Failure(Errc::storeEmpty, "the recorder holds no recordings");
  if (expected && *expected != store->firstId) {
    const std::uint64_t place = std::uint64_t{*expected} - store->firstId;
    if (*expected > store->firstId && place < store->count) {
      return Failure(Errc::notFirst, "recording " + std::to_string(*expected) +
                                         " is not the recorder's first; that is " +
                                         std::to_string(store->firstId));
    }
    return Failure(Errc::noSuchRecording, "the recorder has no recording " + std::to_string(*expected));
  }
  const auto info = askInfo(recorder, store->firstId);
  if (!info) return info.error();
  if (*info) return **info;
  return Failure(Errc::noSuchRecording,
                 "the recorder does not describe its first recording, " + std::to_string(store->firstId),
                 Effect::none, internal::fileInfoError());
}

bool isSame(const RecordingInfo& one, const RecordingInfo& other) {
  return one.id == other.id && one.bytes == other.bytes && one.created == other.created;
}

MaybeFailure askStillFirst(Conversation& recorder, const RecordingInfo& recording) {
  const auto first = askFirst(recorder, recording.id);
  if (!first) return first.error();
  if (isSame(*first, recording)) return std::nullopt;
  return Failure(Errc::noSuchRecording, "the recorder's recording " + std::to_string(recording.id) +
                                            " became another one meanwhile");
}

MaybeFailure askDeletion(Conversation& recorder, const RecordingInfo& recording) {
  if (auto failure = recorder.pause()) return failure;
  const auto answer = recorder.exchange(deletionRequest(recording.id));
  if (!answer) {
    const Failure& error = answer.error();
    const Effect effect = recorder.wasSent() ? Effect::unknown : Effect::none;
    return Failure(error.code(), error.text(), effect, error.cause());
  }
  const auto result = KWTCmdResponse::getDeleteFileResult(hexString(*answer));
  const std::uint64_t code = result ? result->at(0) : 0;
  if (code == 0) {
    recorder.publish(event::RecordingDeleted{recording});
    return std::nullopt;
  }
  const Refusal refusal = refusalOf(code);
  // A code that no recorder knows may be another one, damaged on its way: answers carry no check.
  const Effect effect = refusal.code == Errc::refused ? Effect::unknown : Effect::none;
  return Failure(refusal.code, refusal.text, effect, internal::deletionError(code));
}

Result<Done> removeFirst(Conversation& recorder, std::uint32_t id) {
  return recorder.persist([&]() -> Result<Done> {
    recorder.operation().report(ProgressReport::Stage::asking);
    const auto first = askFirst(recorder, id);
    if (!first) return first.error();
    recorder.operation().report(ProgressReport::Stage::deleting);
    if (const auto failure = askDeletion(recorder, *first)) return *failure;
    return Done{};
  });
}

}  // namespace kwtsdk::session::detail
