#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <map>

#include <kwtsdk/settings.h>

#include "platform/posix/files.h"
#include "platform/threads/mutex.h"

namespace kwtsdk {
namespace {

using Values = std::map<std::string, std::uint64_t>;

void loadLine(const std::string& line, Values& values) {
  const std::size_t blank = line.rfind(' ');
  if (blank == std::string::npos) return;
  std::uint64_t value = 0;
  const char* const end = line.data() + line.size();
  const auto [stop, problem] = std::from_chars(line.data() + blank + 1, end, value);
  if (problem == std::errc() && stop == end) values[line.substr(0, blank)] = value;
}

Values load(const std::string& path) {
  Values values;
  const auto data = internal::dataOfFile(path);
  const std::string text = data ? std::string(data->begin(), data->end()) : std::string();
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    loadLine(text.substr(begin, end - begin), values);
    begin = end + 1;
  }
  return values;
}

bool store(const std::string& path, const Values& values) {
  std::string text;
  for (const auto& [key, value] : values)
    text.append(key).append(" ").append(std::to_string(value)).append("\n");
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (descriptor < 0) return false;
  FileHandle file(descriptor);
  // Without the sync, a crash after the rename could leave an empty file under the final name.
  return file.write(text.data(), text.size()) && ::fsync(descriptor) == 0;
}

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

void createParents(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    ::mkdir(path.substr(0, slash).c_str(), 0700);
  }
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
    if (!loaded_) loaded_ = load(path_);
    const auto found = loaded_->find(key);
    return found == loaded_->end() ? std::nullopt : std::optional(found->second);
  }

  void write(const std::string& key, std::uint64_t value) override { change(key, value); }
  void remove(const std::string& key) override { change(key, std::nullopt); }

  void flush() override {
    const internal::MutexLock lock(mutex_);
    createParents(path_);
    const internal::Descriptor parent(::open(parentOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.get() >= 0) ::flock(parent.get(), LOCK_EX);  // until it is closed
    Values values = load(path_);
    for (const auto& [key, value] : changes_) {
      if (value) {
        values[key] = *value;
      } else {
        values.erase(key);
      }
    }
    const std::string temporary = path_ + ".new";
    if (!store(temporary, values) || std::rename(temporary.c_str(), path_.c_str()) != 0) {
      ::unlink(temporary.c_str());
      return;
    }
    if (parent.get() >= 0) ::fsync(parent.get());
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
