// The main bundle: the application bundle in whose "Contents/MacOS" folder
// the service and every helper it starts lie.
#ifndef ZQ_SYSTEM_MAINBUNDLE_H_
#define ZQ_SYSTEM_MAINBUNDLE_H_

#include <string>

// The bundle that holds the running executable (platform::ExecutableBundlePath),
// or the one SetMainBundlePath named.
std::string MainBundlePath();

// Makes MainBundlePath() answer `path` from now on (tests and tools that run
// outside a bundle).
void SetMainBundlePath(const std::string& path);

#endif  // ZQ_SYSTEM_MAINBUNDLE_H_
