#pragma once

#include <kwtsdk/export.h>

namespace kwtsdk {

KWTSDK_EXPORT extern const double kwtsdkVersionNumber;

/// "@(#)PROGRAM:kwtsdk  PROJECT:KWT-SDK-" and the number, ended by a line feed.
KWTSDK_EXPORT extern const char kwtsdkVersionString[];

}  // namespace kwtsdk
