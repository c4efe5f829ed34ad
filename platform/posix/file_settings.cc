#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>

#include <kwtsdk/settings.h>

#include "platform/posix/files.h"
#include "platform/threads/mutex.h"

namespace kwtsdk {
namespace {

using Values = std::map<std::string, std::uint64_t>;

/// A key in one line, whatever is in it.
std::string escaped(const std::string& key) {
  std::string text;
  for (const char letter : key) {
    if (letter == '\\')
      text += "\\\\";
    else if (letter == '\n')
      text += "\\n";
    else
      text += letter;
  }
  return text;
}

std::string unescaped(std::string_view text) {
  std::string key;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEscaped = text[i] == '\\' && i + 1 < text.size();
    if (isEscaped) ++i;
    key += isEscaped && text[i] == 'n' ? '\n' : text[i];
  }
  return key;
}

void loadLine(std::string_view line, Values& values) {
  const std::size_t blank = line.rfind(' ');
  if (blank == std::string_view::npos) return;
  std::uint64_t value = 0;
  const char* const end = line.data() + line.size();
  const auto [stop, problem] = std::from_chars(line.data() + blank + 1, end, value);
  if (problem == std::errc() && stop == end) values[unescaped(line.substr(0, blank))] = value;
}

/// None when there is a file that cannot be read, or is no such file: it must not be taken for an empty one.
std::optional<Values> load(const std::string& path) {
  constexpr off_t largest = 16 << 20;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return errno == ENOENT ? std::optional(Values()) : std::nullopt;
  if (!S_ISREG(status.st_mode) || status.st_size > largest) return std::nullopt;
  const auto data = internal::dataOfFile(path);
  if (!data) return std::nullopt;
  const std::string text(data->begin(), data->end());
  Values values;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    loadLine(std::string_view(text).substr(begin, end - begin), values);
    begin = end + 1;
  }
  return values;
}

/// Under the lock, so that what has this name is of a program that was killed.
bool store(const std::string& path, const Values& values) {
  std::string text;
  for (const auto& [key, value] : values)
    text.append(escaped(key)).append(" ").append(std::to_string(value)).append("\n");
  ::unlink(path.c_str());
  FileHandle file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  // Without the sync, a crash after the rename could leave an empty file under the final name.
  return file.write(text.data(), text.size()) && file.sync();
}

void createParents(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), 0700);
  }
}

/// What a symbolic link leads to, which is to be replaced instead of the link.
std::string targetOf(const std::string& path) {
  const std::unique_ptr<char, decltype(&::free)> target(::realpath(path.c_str(), nullptr), &::free);
  return target ? target.get() : path;
}

// One "key value" line per setting. What changed is kept apart until a flush merges it into the file as it is
// then: other instances and programs may have changed other keys meanwhile.
class FileSettings : public Settings {
 public:
  explicit FileSettings(std::string path) : path_(std::move(path)) {}

  ~FileSettings() override {
    try {
      if (changed()) FileSettings::flush();
    } catch (...) {  // out of memory: the changes are lost, the file is as it was
    }
  }

  std::optional<std::uint64_t> read(const std::string& key) const override {
    const internal::MutexLock lock(mutex_);
    const auto changed = changes_.find(key);
    if (changed != changes_.end()) return changed->second;
    if (!loaded_) loaded_ = load(path_).value_or(Values());
    const auto found = loaded_->find(key);
    return found == loaded_->end() ? std::nullopt : std::optional(found->second);
  }

  void write(const std::string& key, std::uint64_t value) override { change(key, value); }
  void remove(const std::string& key) override { change(key, std::nullopt); }

  void flush() override {
    static internal::Mutex ofThisProgram;
    const internal::MutexLock lock(mutex_);
    const internal::MutexLock one(ofThisProgram);
    createParents(path_);
    const std::string path = targetOf(path_);
    const internal::Descriptor parent(
        ::open(internal::folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Another program's, which may stand still: the changes wait for the next flush.
    if (parent.get() < 0 || ::flock(parent.get(), LOCK_EX | LOCK_NB) != 0) return;
    auto values = load(path);
    if (!values) return;
    for (const auto& [key, value] : changes_) {
      if (value) {
        (*values)[key] = *value;
      } else {
        values->erase(key);
      }
    }
    const std::string temporary = path + ".new";
    if (!store(temporary, *values) || std::rename(temporary.c_str(), path.c_str()) != 0) {
      ::unlink(temporary.c_str());
      return;
    }
    internal::syncDescriptor(parent.get());
    loaded_ = std::move(values);
    changes_.clear();
  }

 private:
  bool changed() const {
    const internal::MutexLock lock(mutex_);
    return !changes_.empty();
  }

  void change(const std::string& key, std::optional<std::uint64_t> value) {
    const internal::MutexLock lock(mutex_);
    changes_[key] = value;
  }

  const std::string path_;
  mutable internal::Mutex mutex_;
  mutable std::optional<Values> loaded_ KWT_GUARDED_BY(mutex_);
  std::map<std::string, std::optional<std::uint64_t>> changes_ KWT_GUARDED_BY(mutex_);
};

}  // namespace

std::shared_ptr<Settings> fileSettings(const std::string& path) {
  return std::make_shared<FileSettings>(path);
}

}  // namespace kwtsdk
