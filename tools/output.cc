#include "tools/output.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>

#include <nlohmann/json.hpp>

namespace kwtsdk::tool {

namespace fs = std::filesystem;

struct Output::Object {
  nlohmann::json fields = nlohmann::json::object();
};

namespace {

nlohmann::json jsonOf(const Value& value) {
  return std::visit([](const auto& content) { return nlohmann::json(content); }, value);
}

nlohmann::json jsonOf(const Record& record) {
  auto object = nlohmann::json::object();
  for (const auto& [key, value] : record) object[key] = jsonOf(value);
  return object;
}

Failure unusable(const std::string& path, const std::string& reason, const std::string& hint) {
  return {ToolError::fileUnusable, "Cannot write " + path + ": " + reason + ".", hint};
}

/// A recording and the words about it would be in one file.
bool isPrintedTo(const fs::path& path) {
  struct stat file {
  }, stream{};
  if (::stat(path.c_str(), &file) != 0) return false;
  return std::ranges::any_of(std::array{STDOUT_FILENO, STDERR_FILENO}, [&](int descriptor) {
    return ::fstat(descriptor, &stream) == 0 && file.st_dev == stream.st_dev && file.st_ino == stream.st_ino;
  });
}

}  // namespace

Output::Output(OutputStyle style) : style_(style), object_(std::make_unique<Object>()) {}
Output::~Output() = default;

void Output::line(const std::string& text) {
  // Flushed, so that it stands before what comes on standard error.
  if (style_.json || style_.quiet) return;
  std::cout << text << std::endl;
  checkStream();
}

void Output::checkStream() {
  if (!std::cout && streamError_ == 0) streamError_ = errno;
}

// Kept for programs alone: an object that has something in it asks for memory when it goes, and ends the
// program without.
void Output::set(const std::string& key, const Value& value) {
  if (style_.json) object_->fields[key] = jsonOf(value);
}

void Output::setList(const std::string& key, const std::vector<Record>& records) {
  if (!style_.json) return;
  auto& list = object_->fields[key] = nlohmann::json::array();
  for (const Record& record : records) list.push_back(jsonOf(record));
}

void Output::entry(const Record& record) {
  if (!style_.json) return;
  hasEntries_ = true;
  Record numbered = record;
  numbered["schema"] = kSchema;
  std::cout << jsonText(numbered) << std::endl;
  checkStream();
}

void Output::fail(const Failure& failure) {
  status_ = failure.status();
  std::cerr << "kwt: " << failure.what() << '\n';
  if (!failure.hint().empty()) std::cerr << "kwt: " << failure.hint() << '\n';
  if (style_.verbose && !failure.detail().empty())
    std::cerr << "kwt: In its own words: " << failure.detail() << '\n';
  if (!style_.json) return;
  auto& error = object_->fields["error"] = jsonOf(Record{{"domain", failure.domain()},
                                                         {"code", failure.code()},
                                                         {"text", std::string(failure.what())},
                                                         {"hint", failure.hint()}});
  if (!failure.detail().empty()) error["detail"] = failure.detail();
}

int Output::finish() {
  constexpr int indent = 2;
  if (style_.json) {
    object_->fields["schema"] = kSchema;
    // File names need not be UTF-8, JSON has to be.
    const auto unknown = nlohmann::json::error_handler_t::replace;
    std::cout << object_->fields.dump(hasEntries_ ? -1 : indent, ' ', false, unknown) << '\n';
  }
  std::cout.flush();
  checkStream();
  if (streamError_ == EPIPE) {
    ::signal(SIGPIPE, SIG_DFL);
    ::raise(SIGPIPE);
  }
  if (streamError_ != 0) {
    std::cerr << "kwt: The result could not be written to standard output.\n"
                 "kwt: Check where it is redirected to, and the free space there.\n";
    return 1;
  }
  return static_cast<int>(status_);
}

std::string jsonText(const Record& record) {
  return jsonOf(record).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void checkOutput(const std::string& path) {
  std::error_code ignored;
  const fs::file_status status = fs::status(path, ignored);
  if (fs::is_directory(status)) throw unusable(path, "it is a folder", "Name a file with -o.");
  if (fs::exists(status) && !fs::is_regular_file(status))
    throw unusable(path, "it is not a regular file", "Name another file with -o.");
  if (isPrintedTo(path)) throw unusable(path, "what kwt prints goes there", "Name another file with -o.");
  const fs::path parent = fs::path(path).parent_path();
  if (!parent.empty() && !fs::is_directory(parent, ignored)) {
    throw unusable(path, parent.string() + " is not a folder",
                   "Create the folder, or name another file with -o.");
  }
}

std::string creationTimeText(Date created, const char* format) {
  const std::time_t instant = created.time_since_epoch().count();
  std::tm fields{};
  ::localtime_r(&instant, &fields);
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &fields)};
}

std::string bytesText(std::uint64_t count) { return std::to_string(count) + " bytes"; }

std::string secondsText(double seconds, int decimals) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.*f s", decimals, seconds);
  return text.data();
}

std::string ofBytesText(std::uint64_t done, std::uint64_t all) {
  return std::to_string(done) + " of " + bytesText(all);
}

std::string printable(std::string text) {
  const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isC1 = byteAt(i) == 0xC2 && i + 1 < text.size() && byteAt(i + 1) < 0xA0;  // in two bytes
    if (isC1) text.erase(i, 1);
    if (isC1 || byteAt(i) < 0x20 || byteAt(i) == 0x7F) text[i] = '?';
  }
  return text;
}

}  // namespace kwtsdk::tool
