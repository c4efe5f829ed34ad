#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <map>
#include <mutex>

#include <kwtsdk/files.h>
#include <kwtsdk/settings.h>

#include "codec/file_data.h"

namespace kwtsdk {
namespace {

// One "key value" line per setting.
class FileSettings : public Settings {
 public:
  explicit FileSettings(std::string path) : path_(std::move(path)) {}

  std::optional<std::uint64_t> read(const std::string& key) const override {
    const std::lock_guard lock(mutex_);
    loadOnce();
    const auto found = values_.find(key);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
  }

  void write(const std::string& key, std::uint64_t value) override {
    const std::lock_guard lock(mutex_);
    loadOnce();
    values_[key] = value;
  }

  void remove(const std::string& key) override {
    const std::lock_guard lock(mutex_);
    loadOnce();
    values_.erase(key);
  }

  void flush() override {
    const std::lock_guard lock(mutex_);
    loadOnce();
    createParents();
    const std::string temporary = path_ + ".new";
    if (store(temporary) && std::rename(temporary.c_str(), path_.c_str()) == 0) {
      syncParent();
    } else {
      ::unlink(temporary.c_str());
    }
  }

 private:
  void loadOnce() const {
    if (loaded_) return;
    loaded_ = true;
    const auto data = internal::dataOfFile(path_);
    if (!data) return;
    const std::string text(data->begin(), data->end());
    for (std::size_t begin = 0; begin < text.size();) {
      const std::size_t end = std::min(text.find('\n', begin), text.size());
      loadLine(text.substr(begin, end - begin));
      begin = end + 1;
    }
  }

  void loadLine(const std::string& line) const {
    const std::size_t blank = line.rfind(' ');
    if (blank == std::string::npos) return;
    std::uint64_t value = 0;
    const char* const end = line.data() + line.size();
    const auto [stop, problem] = std::from_chars(line.data() + blank + 1, end, value);
    if (problem == std::errc() && stop == end) values_[line.substr(0, blank)] = value;
  }

  bool store(const std::string& path) const {
    std::string text;
    for (const auto& [key, value] : values_) text += key + ' ' + std::to_string(value) + '\n';
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (descriptor < 0) return false;
    FileHandle file(descriptor);
    // Without the sync, a crash after the rename could leave an empty file under the final name.
    return file.write(text.data(), text.size()) && ::fsync(descriptor) == 0;
  }

  void createParents() const {
    for (std::size_t slash = path_.find('/', 1); slash != std::string::npos;
         slash = path_.find('/', slash + 1)) {
      ::mkdir(path_.substr(0, slash).c_str(), 0700);
    }
  }

  void syncParent() const {
    const std::size_t slash = path_.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : path_.substr(0, slash + 1);
    const int descriptor = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return;
    ::fsync(descriptor);
    ::close(descriptor);
  }

  const std::string path_;
  mutable std::mutex mutex_;
  mutable bool loaded_ = false;
  mutable std::map<std::string, std::uint64_t> values_;
};

}  // namespace

std::shared_ptr<Settings> fileSettings(const std::string& path) {
  return std::make_shared<FileSettings>(path);
}

}  // namespace kwtsdk
