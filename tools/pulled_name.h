#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "tools/command_line.h"

namespace kwtsdk::tool {

/// What a pulled recording becomes.
enum class Form { opus, wav, mp3 };

/// The form that a file's extension stands for; none for every other one.
std::optional<Form> formOf(const std::filesystem::path& file);

/// What --as asks for, or the extension of the file or of the pattern; otherwise Ogg Opus. Throws UsageError
/// where they contradict each other.
Form formOf(const Arguments& arguments, const std::filesystem::path& named);

/// The file names that --as and --name ask for.
class Naming {
 public:
  /// Throws UsageError for a pattern that names no file.
  explicit Naming(const Arguments& arguments);

  Form form() const { return form_; }

  /// A recording without a creation time is named by its id where the pattern asks for a time.
  std::string nameOf(const session::RecordingInfo& recording) const;

 private:
  std::string pattern_;
  Form form_;
};

}  // namespace kwtsdk::tool
