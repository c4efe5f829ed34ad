#pragma once

#include <exception>
#include <functional>
#include <utility>

#include "channel/logger.h"

namespace kwtsdk::internal {

/// Runs what the host supplied; an exception stops here and is logged. False when there was one.
template <class Call>
bool guardedCall(const Logger& log, const char* what, Call&& call) {
  try {
    std::forward<Call>(call)();
    return true;
  } catch (const std::exception& exception) {
    log.error("%@ threw: %@", what, exception.what());
  } catch (...) {
    log.error("%@ threw something that is no std::exception", what);
  }
  return false;
}

/// Calls a host's callback; an empty one is a no-op.
template <class... Parameters, class... Args>
void callHost(const Logger& log, const std::function<void(Parameters...)>& callback, Args&&... args) {
  if (callback) guardedCall(log, "A host callback", [&] { callback(std::forward<Args>(args)...); });
}

}  // namespace kwtsdk::internal
