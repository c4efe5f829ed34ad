#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <kwtsdk/export.h>
#include <kwtsdk/format_argument.h>

namespace kwtsdk {

/// What a failed operation reports. Errors made by the library have the domain "com.kwt.sdk"; those of the
/// host's Bluetooth stack are passed on unchanged. A value; `==` compares all three fields.
/// docs/errors.md lists every code with its text, its cause and what a host can do.
class KWTSDK_EXPORT Error {
 public:
  Error(std::string domain, std::int64_t code, std::map<std::string, std::string> userInfo);

  const std::string& domain() const { return domain_; }
  std::int64_t code() const { return code_; }
  const std::map<std::string, std::string>& userInfo() const { return userInfo_; }

  /// userInfo()["NSLocalizedDescription"], "" when absent.
  std::string localizedDescription() const;

  friend bool operator==(const Error&, const Error&) = default;

 private:
  std::string domain_;
  std::int64_t code_;
  std::map<std::string, std::string> userInfo_;
};

using MaybeError = std::optional<Error>;  // nullopt: no error

/// The same as errorWithInfo, for arguments already collected. A null format gives the text "error!".
KWTSDK_EXPORT Error makeErrorWithInfo(std::int64_t code, const char* format,
                                      const std::vector<FormatArgument>& arguments);

/// An error of domain "com.kwt.sdk" whose text is `format` filled with `args` as printf fills it
/// (POSIX.1-2017), with flags, width, precision, "*" and length modifiers; "%@" takes text or an Error, "%d"
/// also an enumeration. A null format gives the text "error!". An argument that does not fit its placeholder
/// is printed as it is, a missing one leaves the placeholder standing. Any thread; never blocks.
template <class... Args>
Error errorWithInfo(std::int64_t code, const char* format, const Args&... args) {
  return makeErrorWithInfo(code, format, {FormatArgument(args)...});
}

/// Error 999 "timeout", the one a firmware update step ends with when its reply stays away.
KWTSDK_EXPORT Error timeoutError();

}  // namespace kwtsdk
