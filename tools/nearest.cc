#include "tools/nearest.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace kwtsdk::tool {
namespace {

/// How many letters have to be added, left out, replaced or exchanged with the next one.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> beforeLast, last(b.size() + 1), current(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    current[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      current[j] = std::min({replaced, last[j] + 1, current[j - 1] + 1});
      const bool isExchange = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (isExchange) current[j] = std::min(current[j], beforeLast[j - 2] + 1);
    }
    beforeLast = std::exchange(last, current);
  }
  return last[b.size()];
}

}  // namespace

std::vector<std::string> nearestTo(std::string_view word, const std::vector<std::string>& candidates) {
  constexpr std::size_t farthest = 2;
  std::vector<std::pair<std::size_t, std::string>> near;
  for (const std::string& candidate : candidates) {
    const bool begins = word.size() > 1 && candidate.starts_with(word);
    const std::size_t away = begins ? 1 : distance(word, candidate);
    // Of a short word other letters make another word.
    if (away <= farthest && away < std::max(word.size(), candidate.size()) / 2 + 1)
      near.emplace_back(away, candidate);
  }
  std::ranges::sort(near);
  std::vector<std::string> words;
  words.reserve(near.size());
  for (auto& [away, candidate] : near) words.push_back(std::move(candidate));
  return words;
}

}  // namespace kwtsdk::tool
