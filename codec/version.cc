#include <kwtsdk/version.h>

namespace kwtsdk {

const double kwtsdkVersionNumber = 0.5;
const char kwtsdkVersionString[] = "@(#)PROGRAM:kwtsdk  PROJECT:KWT-SDK-0.5\n";

}  // namespace kwtsdk
