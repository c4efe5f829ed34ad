#include "session/file_name.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <ctime>
#include <string_view>

#include "session/creation_time.h"

namespace kwtsdk::session::detail {
namespace {

constexpr std::string_view kId = "{id}";

/// How long the conversion is that `text` begins with, with its flags, width and modifier; 0: it does not.
std::size_t conversionLength(std::string_view text) {
  if (!text.starts_with('%')) return 0;
  std::size_t at = text.find_first_not_of("_-0^#+123456789", 1);
  if (at < text.size() && (text[at] == 'E' || text[at] == 'O')) ++at;
  const bool isConversion = at < text.size() && std::isalpha(static_cast<unsigned char>(text[at])) != 0;
  return isConversion ? at + 1 : 0;
}

std::string converted(const std::string& conversion, const std::tm& time) {
  std::array<char, 256> buffer{};
  std::string text(buffer.data(), std::strftime(buffer.data(), buffer.size(), conversion.c_str(), &time));
  std::ranges::replace(text, '/', '-');  // %D, and %x in some languages
  return text;
}

bool isPunctuation(std::string_view text) {
  return std::ranges::all_of(text, [](unsigned char c) { return std::ispunct(c) != 0 || c == ' '; });
}

/// A name that grows from the left to the right.
class Name {
 public:
  explicit Name(const RecordingInfo& recording) : recording_(recording) {}

  void addTime(const std::string& conversion) {
    if (recording_.created) {
      text_ += converted(conversion, wallClock(*recording_.created));
      return;
    }
    const bool goesOn = undatedEnd_ && isPunctuation(std::string_view(text_).substr(*undatedEnd_));
    if (goesOn) {
      text_.resize(*undatedEnd_);
    } else {
      text_ += "undated";
    }
    undatedEnd_ = text_.size();
  }
  void addId() { text_ += std::to_string(recording_.id); }
  void add(char letter) { text_ += letter; }
  const std::string& text() const { return text_; }

 private:
  const RecordingInfo& recording_;
  std::string text_;
  std::optional<std::size_t> undatedEnd_;  // of the last such word
};

}  // namespace

std::optional<Failure> checkNamePattern(const std::string& pattern) {
  constexpr std::string_view forbidden("/\0", 2);
  const bool isName = !pattern.empty() && pattern != "." && pattern != ".." &&
                      pattern.find_first_of(forbidden) == std::string::npos;
  if (isName) return std::nullopt;
  return Failure(
      Errc::badArgument,
      "\"" + pattern + "\" is no pattern for file names: it has to name a file, without a folder.");
}

std::string fileName(const std::string& pattern, const RecordingInfo& recording) {
  Name name(recording);
  for (std::string_view rest = pattern; !rest.empty();) {
    std::size_t used = 1;
    if (const std::size_t length = conversionLength(rest)) {
      name.addTime(std::string(rest.substr(0, length)));
      used = length;
    } else if (rest.starts_with(kId)) {
      name.addId();
      used = kId.size();
    } else {
      name.add(rest.front());
      if (rest.starts_with("%%")) used = 2;
    }
    rest.remove_prefix(used);
  }
  return name.text();
}

}  // namespace kwtsdk::session::detail
