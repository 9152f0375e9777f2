#include "LibraryEntryPoint.h"

#include <dlfcn.h>

void* ResolveLibrarySymbol(const std::string& libraryPath, const char* symbol) {
  // The handle is kept open on purpose: the entry point must stay valid.
  void* library = dlopen(libraryPath.c_str(), RTLD_LAZY);
  return library == nullptr ? nullptr : dlsym(library, symbol);
}
