// Where the service finds the helpers that travel in its application bundle.
// Each path is appended to the main bundle's path.
#ifndef ZQ_BITLOCKER_BUNDLELAYOUT_H_
#define ZQ_BITLOCKER_BUNDLELAYOUT_H_

constexpr const char kBundleMounter[] = "/Contents/MacOS/zq-mounter";
constexpr const char kBundleBitlockerLibrary[] = "/Contents/MacOS/libBitLockerWapper.dylib";
constexpr const char kBundleExplorer[] =
    "/Contents/MacOS/Zq Norvane Explorer.app/Contents/MacOS/Zq Norvane Explorer";

#endif  // ZQ_BITLOCKER_BUNDLELAYOUT_H_
