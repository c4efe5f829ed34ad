#include "session/part_file.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "session/existing_file.h"
#include "session/recording_file.h"
#include "tests/session/stored_recording.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {
namespace {

namespace fs = std::filesystem;
using session::Errc, session::Failure, session::RecordingInfo;
using session::detail::ExistingFile, session::detail::PartFile, session::detail::RecordingFile;

const Date kCreated{std::chrono::seconds(1715938200)};
const RecordingInfo kFirst{7, 40, kCreated}, kOther{8, 40, kCreated};

Bytes bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

/// What is there of a recording; "" when it is begun anew.
std::string partOf(const std::string& file, const RecordingInfo& recording) {
  const auto part = PartFile::open(file, recording);
  if (!part) return part.error().text();
  Bytes content((*part)->size());
  EXPECT_FALSE((*part)->read(0, content));
  return text(content);
}

void writePart(const std::string& file, const RecordingInfo& recording, const std::string& content) {
  const auto part = PartFile::open(file, recording);
  ASSERT_TRUE(part) << part.error().text();
  ASSERT_FALSE((*part)->write(0, bytesOf(content)));
}

void expectUnusable(const std::optional<Failure>& failure, const std::string& part) {
  ASSERT_TRUE(failure) << part;
  EXPECT_TRUE(*failure == Errc::fileUnusable && failure->text().find(part) != std::string::npos)
      << failure->text() << ", not " << part;
}
template <class T>
void expectUnusable(const session::Result<T>& result, const std::string& part) {
  expectUnusable(result ? std::nullopt : std::optional(result.error()), part);
}

TEST(PartFile, ContinuesItsOwnRecordingAloneAndWhatIsRight) {
  const TemporaryFolder folder;
  const std::string file = folder.file("memo"), id = file + ".part.id";
  const RecordingInfo later{7, 40, kCreated + std::chrono::seconds(1)}, longer{7, 41, kCreated},
      undated{7, 40, std::nullopt}, shorter{7, 3, kCreated};
  const std::function<void()> spoil[]{[&] { EXPECT_EQ(partOf(file, kOther), ""); },
                                      [&] { EXPECT_EQ(partOf(file, later), ""); },
                                      [&] { EXPECT_EQ(partOf(file, longer), ""); },
                                      [&] { EXPECT_EQ(partOf(file, undated), ""); },
                                      [&] { EXPECT_EQ(partOf(file, shorter), ""); },
                                      [&] { fs::remove(id); },
                                      [&] { writeFile(id, "rubbish"); },
                                      [&] { fs::resize_file(id, 20); },
                                      [&] { fs::resize_file(file + ".part", 41); }};
  for (const auto& spoilt : spoil) {
    writePart(file, kFirst, "beginning");
    EXPECT_EQ(partOf(file, kFirst), "beginning");
    spoilt();
    EXPECT_EQ(partOf(file, kFirst), "");
    EXPECT_EQ(namesIn(folder.path()), Names());
  }
  const auto held = PartFile::open(file, kFirst);
  expectUnusable(PartFile::open(file, kFirst), "memo.part: another download writes it.");
}

/// Runs `work` in a process that is killed at its `count`th entry to or return from the system; whether there
/// were that many.
bool killedAt(int count, const std::function<void()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(1);
    ::raise(SIGSTOP);
    work();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  for (int i = 0; i < count && WIFSTOPPED(status); ++i) {
    ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    ::waitpid(child, &status, 0);
  }
  if (!WIFSTOPPED(status)) return false;
  ::kill(child, SIGKILL);
  ::waitpid(child, &status, 0);
  return true;
}

TEST(PartFile, KilledAtAnyMomentItNeverContinuesAnother) {
  std::set<std::string> seen;
  bool killed = true;
  for (int count = 0; killed; ++count) {
    const TemporaryFolder folder, copy;
    writePart(folder.file("memo"), kFirst, "beginning");
    killed = killedAt(count, [&] { writePart(folder.file("memo"), kOther, "other"); });
    fs::copy(folder.path(), copy.path());
    seen.insert(partOf(folder.file("memo"), kFirst) + '|' + partOf(copy.file("memo"), kOther));
    EXPECT_FALSE(fs::exists(folder.file("memo")));
  }
  EXPECT_EQ(seen, (std::set<std::string>{"beginning|", "|", "|other"}));
}

TEST(PartFile, NothingIsReplacedOrFollowed) {
  const TemporaryFolder folder;
  fs::create_directories(folder.file("folder"));
  fs::create_directory(folder.file("a.part"));
  ::mkfifo(folder.file("b.part").c_str(), 0600);
  fs::create_symlink("elsewhere", folder.file("c.part"));
  fs::create_symlink("nowhere", folder.file("link"));
  const std::pair<std::string, std::string> cases[]{
      {"folder", "it is a folder"},        {"", "it is a folder"},
      {"a", "a.part: it is a folder"},     {"b", "b.part: it is not a regular file"},
      {"c", "it is not a regular file"},   {"link", "it exists already"},
      {"missing/d", "No such file or di"}, {std::string(253, 'n'), "File name too long"}};
  const Names before = namesIn(folder.path());
  for (const auto& [name, reason] : cases)
    expectUnusable(PartFile::open(folder.path() + "/" + name, kFirst), reason);
  EXPECT_EQ(namesIn(folder.path()), before);

  const auto part = PartFile::open(folder.file("late"), kFirst);
  ASSERT_TRUE(part && !(*part)->write(0, bytesOf("part")));
  writeFile(folder.file("late"), "mine");
  expectUnusable((*part)->save(), "late: it exists already");
  EXPECT_EQ(contentOf(folder.file("late")) + contentOf(folder.file("late.part")), "minepart");
}

TEST(ExistingFile, OnlyAWholeRecordingOfTheSizeCounts) {
  const TemporaryFolder folder;
  const Bytes pages = joined(oggPage(kBegin, 1, 0, 19), oggPage(kEnd, 1, 1, 300));
  const auto there = [&](const std::string& name, const Bytes& content) {
    writeFile(folder.file(name), text(content));
    return ExistingFile::open(folder.file(name), pages.size() + 50);
  };
  const auto whole = there("whole", joined(pages, Bytes(50, 0xFF)));
  ASSERT_TRUE(whole) << whole.error().text();
  EXPECT_EQ((*whole)->lastPage(), 47U);
  Bytes damaged = joined(pages, Bytes(50, 0));
  damaged[100] ^= 1;
  expectUnusable(there("short", pages), "it has 376 bytes instead of 426");
  expectUnusable(there("damaged", damaged), "its Ogg pages check up to byte 47; it is left as it is.");
  expectUnusable(there("mixed", joined(pages, Bytes(49, 0), Bytes(1, 1))), "holds no whole one");
  expectUnusable(there("text", Bytes(pages.size() + 50, 'x')), "up to byte 0");
  ::mkfifo(folder.file("pipe").c_str(), 0600);
  fs::create_symlink("nowhere", folder.file("link"));
  expectUnusable(ExistingFile::open(folder.path(), 426), "since it is a folder");
  expectUnusable(ExistingFile::open(folder.file("pipe"), 426), "since it is not a regular file");
  EXPECT_TRUE(ExistingFile::isThere(folder.file("link")) && ExistingFile::isThere(folder.path()));
  EXPECT_FALSE(ExistingFile::isThere(folder.file("missing")));
}

TEST(RecordingFile, MayBeThereWhenItIsEmptyAndIsOneRecordings) {
  const TemporaryFolder folder;
  writeFile(folder.file("empty"), "");
  const auto file = RecordingFile::create(folder.file("empty"));
  ASSERT_TRUE(file);
  expectUnusable(RecordingFile::create(folder.file("empty")), "another recording");
}

}  // namespace
}  // namespace kwtsdk::testing
