#include <kwtsdk/bytes.h>

namespace kwtsdk {

std::optional<Bytes> subDataWithRange(const Bytes& data, std::uint64_t location, std::uint64_t length) {
  if (location > data.size() || length > data.size() - location) return std::nullopt;
  const auto begin = data.begin() + static_cast<Bytes::difference_type>(location);
  return Bytes(begin, begin + static_cast<Bytes::difference_type>(length));
}

}  // namespace kwtsdk
