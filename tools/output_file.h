#pragma once

#include <cstdint>
#include <string>

namespace kwtsdk::tool {

/// The file that a recording goes into, new or to be continued. Throws a Failure when it cannot be that,
/// before anything is sent. A new one that stays empty is removed again.
class OutputFile {
 public:
  explicit OutputFile(std::string path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  const std::string& path() const { return path_; }
  std::uint64_t size() const;

 private:
  const std::string path_;
  const bool isNew_;
};

}  // namespace kwtsdk::tool
