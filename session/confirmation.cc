#include "session/confirmation.h"

#include <algorithm>
#include <vector>

namespace kwtsdk::session::detail {

Intake::Verdict Confirmation::take(std::span<const std::uint8_t> bytes) {
  constexpr unsigned believed = 2;  // the first may be the radio's
  std::vector<std::uint8_t> stored(bytes.size());
  if (auto failure = existing_->read(position_, stored)) return {Verdict::Kind::failed, failure};
  if (std::ranges::equal(stored, bytes)) {
    position_ += bytes.size();
    return {};
  }
  if (++differences_ < believed) return {Verdict::Kind::other, std::nullopt};
  return {Verdict::Kind::failed,
          Failure(Errc::fileUnusable, file_.string() + " exists and is another recording than "
                                                       "the recorder's first; it is left as it is")};
}

Intake::Verdict Confirmation::end(bool) {
  return {position_ < total_ ? Verdict::Kind::again : Verdict::Kind::whole, std::nullopt};
}

}  // namespace kwtsdk::session::detail
