#include <kwtsdk/error.h>

#include "codec/error_codes.h"
#include "codec/text_format.h"

namespace kwtsdk {

Error::Error(std::string domain, std::int64_t code, std::map<std::string, std::string> userInfo)
    : domain_(std::move(domain)), code_(code), userInfo_(std::move(userInfo)) {}

std::string Error::localizedDescription() const {
  const auto found = userInfo_.find(internal::kDescriptionKey);
  return found == userInfo_.end() ? std::string() : found->second;
}

Error makeErrorWithInfo(std::int64_t code, const char* format, const std::vector<FormatArgument>& arguments) {
  return {
      internal::kErrorDomain,
      code,
      {{internal::kDescriptionKey, format == nullptr ? "error!" : internal::formatText(format, arguments)}}};
}

FormatArgument::FormatArgument(const Error& error) : value_(internal::description(error)) {}

Error timeoutError() { return errorWithInfo(999, "timeout"); }

namespace internal {

std::string description(const MaybeError& error) {
  if (!error) return "(null)";
  return formatText("Error Domain=%@ Code=%ld \"%@\"",
                    {error->domain(), error->code(), error->localizedDescription()});
}

}  // namespace internal
}  // namespace kwtsdk
