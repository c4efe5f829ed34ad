#include "tools/observed_log.h"

#include <cstdlib>
#include <string>

namespace kwtsdk::tool {

void ObservedLog::write(LogLevel level, std::string_view line) {
  next_->write(level, line);
  if (level == LogLevel::debug) return;  // once per packet
  std::unique_lock lock(mutex_);
  const Observer observer = observer_;
  lock.unlock();
  if (observer) observer(line);
}

void ObservedLog::observe(Observer observer) {
  const std::lock_guard lock(mutex_);
  observer_.swap(observer);
}

MaybeError errorOfLogText(std::string_view text) {
  constexpr std::string_view domainMark = "Error Domain=", codeMark = " Code=";
  if (text == "(null)") return std::nullopt;
  const std::size_t codeAt = text.find(codeMark), quote = text.find('"');
  if (!text.starts_with(domainMark) || codeAt == text.npos || quote == text.npos) {
    return Error("", 0, {{"NSLocalizedDescription", std::string(text)}});
  }
  const std::string domain(text.substr(domainMark.size(), codeAt - domainMark.size()));
  const auto code = std::strtoll(std::string(text.substr(codeAt + codeMark.size())).c_str(), nullptr, 10);
  std::string description(text.substr(quote + 1));
  if (description.ends_with('"')) description.pop_back();
  return Error(domain, code, {{"NSLocalizedDescription", description}});
}

}  // namespace kwtsdk::tool
