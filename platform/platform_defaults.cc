#include "platform/platform_defaults.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <string>

#include "platform/posix/installed_converter.h"

namespace kwtsdk::internal {
namespace {

std::string homeDirectory() {
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  return found == nullptr ? std::string("/tmp") : std::string(found->pw_dir);
}

}  // namespace

Platform withDefaults(Platform platform) {
  if (!platform.scheduler) platform.scheduler = threadScheduler();
  if (!platform.settings) platform.settings = fileSettings(homeDirectory() + "/.local/state/kwtsdk/settings");
  if (!platform.log) platform.log = systemLog();
  if (!platform.opusConverter) platform.opusConverter = installedConverter(platform.log);
  return platform;
}

}  // namespace kwtsdk::internal
