#include "system/MainBundle.h"
#include <mutex>
#include <optional>

#include "platform/Bundle.h"

namespace {

std::mutex bundleMutex;
std::optional<std::string> bundleOverride;

}  // namespace

std::string MainBundlePath() {
  {
    std::lock_guard<std::mutex> lock(bundleMutex);
    if (bundleOverride) return *bundleOverride;
  }
  return platform::ExecutableBundlePath();
}

void SetMainBundlePath(const std::string& path) {
  std::lock_guard<std::mutex> lock(bundleMutex);
  bundleOverride = path;
}
