#include <kwtsdk/uuid.h>

#include <algorithm>
#include <cctype>

#include "codec/hex.h"

namespace kwtsdk {
namespace {

constexpr std::string_view kBaseUuidTail = "-0000-1000-8000-00805F9B34FB";
constexpr std::array<std::size_t, 4> kDashes{8, 13, 18, 23};

bool isLongForm(std::string_view text) {
  if (text.size() != 36) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool dash = std::find(kDashes.begin(), kDashes.end(), i) != kDashes.end();
    if (dash ? text[i] != '-' : std::isxdigit(static_cast<unsigned char>(text[i])) == 0) return false;
  }
  return true;
}

}  // namespace

std::optional<Uuid> Uuid::fromString(std::string_view text) {
  std::string form(text);
  if (form.size() == 4) form = "0000" + form + std::string(kBaseUuidTail);
  if (!isLongForm(form)) return std::nullopt;
  std::erase(form, '-');
  const Bytes bytes = internal::toData(form);
  Uuid uuid;
  std::copy(bytes.begin(), bytes.end(), uuid.bytes_.begin());
  return uuid;
}

std::string Uuid::toString() const {
  std::string text = internal::hexString(bytes_);
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  for (const std::size_t dash : kDashes) text.insert(dash, 1, '-');
  return text;
}

std::size_t Uuid::hash() const {
  return std::hash<std::string_view>{}({reinterpret_cast<const char*>(bytes_.data()), bytes_.size()});
}

}  // namespace kwtsdk
