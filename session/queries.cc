#include "session/queries.h"

#include <kwtsdk/cmd_response.h>

#include "codec/hex.h"

namespace kwtsdk::session::detail {
namespace {

using internal::hexString;

template <class T, class Set>
typename Query<T>::Step battery(const Set& set) {
  return {batteryRequest(),
          [set](const Bytes& answer, T& value) { set(value, KWTCmdResponse::getPower(hexString(answer))); }};
}

template <class T, class Set>
typename Query<T>::Step firmware(const NoteVersion& noted, const Set& set) {
  return {versionRequest(), [noted, set](const Bytes& answer, T& value) {
            std::string version = KWTCmdResponse::getVersion(hexString(answer));
            noted(version);
            set(value, std::move(version));
          }};
}

template <class T, class Set>
typename Query<T>::Step storage(const Set& set) {
  return {storageRequest(), [set](const Bytes& answer, T& value) {
            set(value, KWTCmdResponse::getCapacityResult(hexString(answer)).value_or(ByteCounts{}));
          }};
}

constexpr auto kWhole = [](auto& value, auto answer) { value = std::move(answer); };

}  // namespace

Query<std::uint64_t> batteryQuery() { return {{battery<std::uint64_t>(kWhole)}}; }
Query<ByteCounts> storageQuery() { return {{storage<ByteCounts>(kWhole)}}; }
Query<std::string> firmwareQuery(const NoteVersion& noted) {
  return {{firmware<std::string>(noted, kWhole)}};
}

Query<Status> statusQuery(const NoteVersion& noted) {
  const Query<Status>::Step count{countRequest(), [](const Bytes& answer, Status& status) {
                                    const auto info = KWTCmdResponse::getFlashInfo(hexString(answer));
                                    status.recordings = info ? info->Num : 0;
                                  }};
  return {{battery<Status>([](Status& status, std::uint64_t level) { status.battery = level; }),
           firmware<Status>(
               noted, [](Status& status, std::string version) { status.firmware = std::move(version); }),
           storage<Status>([](Status& status, ByteCounts counts) { status.storage = std::move(counts); }),
           count}};
}

}  // namespace kwtsdk::session::detail
