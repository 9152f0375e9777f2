#include "bitlocker/PackageLibrary.h"

#include <dlfcn.h>

#include <atomic>

#include "bitlocker/BundleLayout.h"
#include "system/MainBundle.h"

namespace {

// The symbol, or null when the library or the symbol is missing.  The
// handle is kept open on purpose: the entry point must stay valid.
void* ResolveSymbol(const char* symbol) {
  void* library = dlopen(PackageLibraryPath().c_str(), RTLD_LAZY | RTLD_LOCAL);
  return library == nullptr ? nullptr : dlsym(library, symbol);
}

template <typename Function>
Function Resolved(std::atomic<Function>* cache, const char* symbol) {
  Function function = cache->load(std::memory_order_acquire);
  if (function == nullptr) {
    function = reinterpret_cast<Function>(ResolveSymbol(symbol));
    cache->store(function, std::memory_order_release);
  }
  return function;
}

}  // namespace

std::string PackageLibraryPath() { return MainBundlePath() + kBundleBitlockerLibrary; }

IsBitlockerDriveFunction PackageIsBitlockerDrive() {
  static std::atomic<IsBitlockerDriveFunction> lpfn{nullptr};
  return Resolved(&lpfn, "is_bitlocker_drive");
}

OpenBitlockerDeviceFunction PackageOpenBitlockerDevice() {
  static std::atomic<OpenBitlockerDeviceFunction> lpfn{nullptr};
  return Resolved(&lpfn, "open_bitlocker_device");
}

OpenFailureFunction PackageOpenFailure() {
  static std::atomic<OpenFailureFunction> lpfn{nullptr};
  return Resolved(&lpfn, "bitlocker_open_failure");
}
