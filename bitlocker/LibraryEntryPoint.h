// One entry point of the package's BitLocker library, resolved on first use
// and kept for the life of the process.  A library or symbol that is
// missing is looked up again at the next call.
#ifndef ZQ_BITLOCKER_LIBRARYENTRYPOINT_H_
#define ZQ_BITLOCKER_LIBRARYENTRYPOINT_H_

#include <atomic>
#include <string>

void* ResolveLibrarySymbol(const std::string& libraryPath, const char* symbol);

template <typename Function>
class LibraryEntryPoint {
 public:
  explicit LibraryEntryPoint(const char* symbol) : symbol_(symbol) {}

  // The entry point, or null when the library or the symbol is missing.
  Function Get(const std::string& libraryPath) {
    Function function = cached_.load(std::memory_order_acquire);
    if (function == nullptr) {
      function = reinterpret_cast<Function>(ResolveLibrarySymbol(libraryPath, symbol_));
      cached_.store(function, std::memory_order_release);
    }
    return function;
  }

 private:
  const char* symbol_;
  std::atomic<Function> cached_{nullptr};
};

#endif  // ZQ_BITLOCKER_LIBRARYENTRYPOINT_H_
