#include "tools/pulled_name.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <string_view>

namespace kwtsdk::tool {
namespace {

struct Extension {
  Form form;
  const char* text;
};
constexpr std::array<Extension, 3> kExtensions{
    {{Form::opus, ".opus"}, {Form::wav, ".wav"}, {Form::mp3, ".mp3"}}};

constexpr std::string_view kId = "{id}";
// With the creation time, since another recorder's recording may have the same id.
constexpr const char* kUsualPattern = "recording-{id}-%Y%m%d-%H%M%S";
constexpr const char* kUndatedPattern = "recording-{id}";

std::string extensionFor(Form form) { return kExtensions.at(static_cast<std::size_t>(form)).text; }

Form formNamed(const std::string& word) {
  for (const auto& [form, extension] : kExtensions) {
    if (word == extension + 1) return form;
  }
  throw UsageError("--as takes opus, wav or mp3");
}

}  // namespace

std::optional<Form> formOf(const std::filesystem::path& file) {
  std::string extension = file.extension();
  std::ranges::transform(extension, extension.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto found =
      std::ranges::find_if(kExtensions, [&](const auto& one) { return extension == one.text; });
  return found == kExtensions.end() ? std::nullopt : std::optional(found->form);
}

Form formOf(const Arguments& arguments, const std::filesystem::path& named) {
  const auto byName = formOf(named);
  if (!arguments.has("--as")) return byName.value_or(Form::opus);
  const Form form = formNamed(arguments.text("--as"));
  require(!byName || *byName == form,
          named.string() + " and --as " + arguments.text("--as") + " contradict each other: leave --as out");
  return form;
}

Naming::Naming(const Arguments& arguments)
    : pattern_(arguments.has("--name") ? arguments.text("--name") : kUsualPattern),
      form_(formOf(arguments, pattern_)) {
  require(!pattern_.empty() && pattern_.find('/') == std::string::npos && !pattern_.starts_with('.'),
          "--name needs a file's name, without a folder, such as '%Y-%m-%d %H.%M {id}'");
  if (!formOf(pattern_)) pattern_ += extensionFor(form_);
}

std::string Naming::nameOf(const session::RecordingInfo& recording) const {
  const bool isUndated = !recording.created && pattern_.find('%') != std::string::npos;
  std::string name = isUndated           ? kUndatedPattern + extensionFor(form_)
                     : recording.created ? creationTimeText(*recording.created, pattern_.c_str())
                                         : pattern_;
  std::ranges::replace(name, '/', '-');  // of %D, and %x in some languages
  for (std::size_t at = name.find(kId); at != std::string::npos; at = name.find(kId)) {
    name.replace(at, kId.size(), std::to_string(recording.id));
  }
  return name;
}

}  // namespace kwtsdk::tool
