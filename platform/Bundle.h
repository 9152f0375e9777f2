// Where the running program's application bundle lies.
#ifndef ZQ_PLATFORM_BUNDLE_H_
#define ZQ_PLATFORM_BUNDLE_H_

#include <string>

namespace platform {

// The application bundle that holds the running executable: the folder
// above "Contents" when the executable lies in "<bundle>/Contents/MacOS",
// otherwise the executable's own folder (CoreFoundation's main bundle on
// macOS).
std::string ExecutableBundlePath();

}  // namespace platform

#endif  // ZQ_PLATFORM_BUNDLE_H_
