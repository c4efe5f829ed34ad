#include "session/existing_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <system_error>

#include <kwtsdk/bytes.h>

#include "session/folder.h"
#include "session/page_check.h"

namespace kwtsdk::session::detail {

namespace fs = std::filesystem;

namespace {

Failure notThisRecording(const fs::path& file, const std::string& reason) {
  return fileFailure(
      "save", file, "it exists already and is not this recording, since " + reason + "; it is left as it is");
}

Result<PageCheck> checked(const DiskFile& file, std::uint64_t bytes) {
  constexpr std::size_t kPiece = 65536;
  Bytes piece(kPiece);
  PageCheck check;
  for (std::uint64_t at = 0; at < bytes && check.state() != PageCheck::State::failed; at += kPiece) {
    const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, bytes - at));
    const auto now = std::span(piece).first(count);
    if (auto failure = file.read(at, now)) return *failure;
    check.take(now);
  }
  return check;
}

bool isWholeRecording(const PageCheck& check) {
  if (check.state() == PageCheck::State::filler) return check.uniform();
  return check.state() == PageCheck::State::pages && check.whole() > 0 && check.whole() == check.position();
}

}  // namespace

bool ExistingFile::isThere(const fs::path& file) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(file, ignored));
}

Result<std::shared_ptr<ExistingFile>> ExistingFile::open(const fs::path& file, std::uint64_t bytes) {
  std::error_code ignored;
  const fs::file_status status = fs::symlink_status(file, ignored);
  if (fs::is_directory(status)) return notThisRecording(file, "it is a folder");
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    return notThisRecording(file, "it is not a regular file");
  }
  auto opened = DiskFile::open(AT_FDCWD, file.string(), O_RDONLY | O_NOFOLLOW, file);
  if (!opened) return opened.error();
  DiskFile found = std::move(opened).value();
  const auto size = found.size();
  if (!size) return size.error();
  if (*size != bytes) {
    return notThisRecording(file,
                            "it has " + std::to_string(*size) + " bytes instead of " + std::to_string(bytes));
  }
  const auto check = checked(found, bytes);
  if (!check) return check.error();
  if (!isWholeRecording(*check)) {
    return notThisRecording(
        file, "it holds no whole one: its Ogg pages check up to byte " + std::to_string(check->whole()));
  }
  return std::shared_ptr<ExistingFile>(new ExistingFile(std::move(found), check->lastPage()));
}

std::optional<Failure> ExistingFile::read(std::uint64_t offset, std::span<std::uint8_t> into) {
  return file_.read(offset, into);
}

}  // namespace kwtsdk::session::detail
