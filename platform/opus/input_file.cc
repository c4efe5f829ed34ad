#include "platform/opus/input_file.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <new>
#include <string_view>
#include <system_error>
#include <vector>

#include "platform/opus/live_packets.h"

namespace kwtsdk::internal {

namespace {

using namespace std::string_view_literals;

struct Signature {
  std::string_view begin;
  std::size_t at;  // of `mark`
  std::string_view mark;
  const char* name;
};

constexpr std::array<Signature, 7> kOthers{{{"RIFF", 8, "WAVE", "RIFF/WAVE audio"},
                                            {"OggS", 0, "", "an Ogg file without Opus sound"},
                                            {"fLaC", 0, "", "FLAC audio"},
                                            {"ID3", 0, "", "MP3 audio"},
                                            {"\xff\xf3"sv, 0, "", "MP3 audio"},
                                            {"\xff\xfb"sv, 0, "", "MP3 audio"},
                                            {"", 4, "ftyp", "an MP4 or M4A file"}}};

bool isOggOpus(std::string_view head) {
  constexpr std::size_t segmentCountAt = 26;
  if (!head.starts_with("OggS") || head.size() <= segmentCountAt) return false;
  const std::size_t packetAt = segmentCountAt + 1 + static_cast<unsigned char>(head[segmentCountAt]);
  return head.size() > packetAt && head.substr(packetAt).starts_with("OpusHead");
}

std::string hexOf(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hex;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    (hex += ' ') += digits[value >> 4U];
    hex += digits[value & 15U];
  }
  return hex;
}

/// What the file is if it is no recording; null when it could be a damaged one.
const char* otherKind(std::string_view head) {
  if (head.empty()) return "empty";
  for (const Signature& other : kOthers) {
    if (head.starts_with(other.begin) && head.size() > other.at &&
        head.substr(other.at).starts_with(other.mark)) {
      return other.name;
    }
  }
  return nullptr;
}

bool isLiveRecording(std::span<const std::uint8_t> head) {
  if (head.size() >= live_record::kHeaderSize && live_record::mayBegin(head)) return true;
  // The beginning may be damaged; two records in step are no accident.
  return live_record::find(head, 0, head.size()) < head.size();
}

}  // namespace

ConversionFailure unwritable(const std::string& path, const std::string& reason) {
  return ConversionFailure(path + " cannot be written (" + reason +
                           "): check the folder, its permissions and its free space, or name another file.");
}

std::string told(std::string_view text) noexcept {
  try {
    return std::string(text);
  } catch (const std::bad_alloc&) {
    return "No memory left.";  // as long as a string holds by itself
  }
}

std::string systemReason() { return std::generic_category().message(errno); }

InputFile::InputFile(const std::string& path)
    // A pipe would otherwise block until somebody writes to it.
    : path_(path), descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  if (descriptor_.get() < 0 || ::fstat(descriptor_.get(), &status_) != 0) {
    throw ConversionFailure(path + " cannot be opened (" + systemReason() +
                            "): check its name and its permissions.");
  }
  if (S_ISDIR(status_.st_mode)) throw ConversionFailure(path + " is a folder: name a recording in it.");
  if (!S_ISREG(status_.st_mode)) throw ConversionFailure(path + " is not a regular file: name a recording.");
}

double InputFile::fraction() const {
  return size() == 0 ? 1 : std::min(1.0, static_cast<double>(consumed_) / static_cast<double>(size()));
}

bool InputFile::isSameFileAs(const struct stat& other) const {
  return status_.st_dev == other.st_dev && status_.st_ino == other.st_ino;
}

std::size_t InputFile::read(std::span<std::uint8_t> buffer) {
  const std::size_t count = readAt(buffer, consumed_);
  consumed_ += count;
  return count;
}

std::size_t InputFile::peek(std::span<std::uint8_t> buffer) const { return readAt(buffer, 0); }

std::size_t InputFile::readAt(std::span<std::uint8_t> buffer, std::uint64_t offset) const {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = ::pread(descriptor_.get(), buffer.data() + filled, buffer.size() - filled,
                                  static_cast<off_t>(offset + filled));
    if (count == 0) break;
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      throw ConversionFailure(path_ + " cannot be read (" + systemReason() +
                              "): copy it to another disk, or download it again.");
    }
  }
  return filled;
}

opus::Source recognise(const InputFile& file) {
  std::vector<std::uint8_t> bytes(65536);
  bytes.resize(file.peek(bytes));
  const std::string_view head(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (isOggOpus(head)) return opus::Source::oggOpus;
  const char* other = otherKind(head);
  if (other == nullptr && isLiveRecording(bytes)) return opus::Source::liveRecording;
  constexpr std::size_t shown = 8;
  const std::string found =
      other == nullptr ? "no recording, it begins with the bytes" + hexOf(head.substr(0, shown)) : other;
  throw ConversionFailure(file.path() + " is " + found +
                          ": only Ogg Opus files and live recordings can be converted.");
}

}  // namespace kwtsdk::internal
