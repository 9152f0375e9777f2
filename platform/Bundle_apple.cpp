#include "platform/Bundle.h"

#include <CoreFoundation/CoreFoundation.h>

#include <climits>
#include <memory>

namespace platform {

std::string ExecutableBundlePath() {
  CFBundleRef bundle = CFBundleGetMainBundle();
  if (bundle == nullptr) return "";
  const std::unique_ptr<const void, decltype(&CFRelease)> url(CFBundleCopyBundleURL(bundle), CFRelease);
  char path[PATH_MAX];
  if (url == nullptr || !CFURLGetFileSystemRepresentation(static_cast<CFURLRef>(url.get()), true,
                                                          reinterpret_cast<UInt8*>(path), sizeof path))
    return "";
  return path;
}

}  // namespace platform
