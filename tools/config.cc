#include "tools/config.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/failure.h"

namespace kwtsdk::tool {
namespace {

namespace fs = std::filesystem;

fs::path configPath() {
  const char* const folder = std::getenv("XDG_CONFIG_HOME");
  // As that variable's own rules say: what is no absolute path does not count.
  if (folder != nullptr && *folder == '/') return fs::path(folder) / "kwt" / "config";
  const char* const home = std::getenv("HOME");
  return fs::path(home == nullptr ? "" : home) / ".config" / "kwt" / "config";
}

std::string trimmed(std::string_view text) {
  constexpr const char* blanks = " \t\r";
  const std::size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string_view::npos) return "";
  return std::string(text.substr(begin, text.find_last_not_of(blanks) + 1 - begin));
}

/// Name and value; an empty name for every other line.
std::pair<std::string, std::string> understood(const std::string& line) {
  const std::size_t equals = line.find('=');
  if (equals == std::string::npos || trimmed(line).starts_with('#')) return {};
  return {trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1))};
}

/// The name is taken from errno.
[[noreturn]] void throwUnwritable(const fs::path& path) {
  throw Failure(ToolError::fileUnusable,
                "Cannot write " + path.string() + ": " + std::generic_category().message(errno) + ".",
                "Check permissions and free space, or name the recorder with --device or KWT_DEVICE.");
}

void writeWhole(const fs::path& path, const std::string& text) {
  constexpr mode_t mode = 0644;
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  if (file < 0) throwUnwritable(path);
  const bool isWritten =
      ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && ::fsync(file) == 0;
  const int error = errno;
  ::close(file);
  errno = error;
  if (!isWritten) throwUnwritable(path);
}

}  // namespace

Config::Config() : path_(configPath()) {
  std::error_code ignored;
  if (!fs::exists(path_, ignored)) return;
  std::ifstream file(path_);
  text_.assign(std::istreambuf_iterator<char>(file), {});
  if (file && !fs::is_directory(path_, ignored)) return;
  throw Failure(ToolError::fileUnreadable, "Cannot read " + path_.string() + ".",
                "Look what it is: kwt keeps there which recorder is the usual one.");
}

std::optional<std::string> Config::value(const std::string& name) const {
  std::istringstream lines(text_);
  for (std::string line; std::getline(lines, line);) {
    auto [found, value] = understood(line);
    if (found == name && !value.empty()) return std::move(value);
  }
  return std::nullopt;
}

void Config::set(const std::string& name, const std::optional<std::string>& value) {
  std::istringstream lines(text_);
  std::string kept;
  for (std::string line; std::getline(lines, line);) {
    if (understood(line).first != name) kept += line + '\n';
  }
  text_ = kept + (value ? name + " = " + *value + '\n' : "");
}

void Config::save() const {
  std::error_code problem;
  fs::create_directories(path_.parent_path(), problem);
  if (problem) {
    errno = problem.value();
    throwUnwritable(path_);
  }
  const fs::path fresh = path_.string() + "." + std::to_string(::getpid());
  try {
    writeWhole(fresh, text_);
    if (::rename(fresh.c_str(), path_.c_str()) != 0) throwUnwritable(path_);
  } catch (...) {
    ::unlink(fresh.c_str());
    throw;
  }
}

}  // namespace kwtsdk::tool
